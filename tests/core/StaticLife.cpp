// A process for each way in which a connector may live and die with the process itself. The first argument says which.

#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/async/Promise.h>
#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>
#include <fl/log/basic_diagnostic_logger.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace connector;
using namespace connector::test;

static std::atomic<int> yields{0};

/// Found before the system's by every library that this program loads.
extern "C" int sched_yield() noexcept {
    ++yields;
    return static_cast<int>(syscall(SYS_sched_yield));
}

namespace {

void require(bool condition, const char* what) {
    if (!condition) {
        std::cerr << what << '\n';
        std::_Exit(3);
    }
}

template <class Condition>
void waitUntil(const Condition& condition) {
    while (!condition())
        std::this_thread::yield();
}

std::shared_ptr<ConnectorImpl2> newHost() {
    auto host = std::make_shared<ConnectorImpl2>();
    host->addServiceProvider("p", provider());
    return host;
}

/// Routes one message that is answered and one that isn't, which is logged.
void use(Connector& host) {
    require(outcome(send(host, "p/x")) == "hello@x", "a message was not answered");
    require(outcome(send(host, "nobody")).find("not found") != std::string::npos, "a message was answered by nobody");
}

/// The providers on the exchange that are not yet destroyed.
int registered = 0;
const struct Farewells {
    ~Farewells() { require(registered == 0, "a provider was not destroyed once"); }
} checkedAtTheEnd;

void requireNoneOnExchange(const std::string& name) {
    require(outcome(send(*std::make_shared<ConnectorImpl>(), name)) == "runtime_error: No service named: " + name,
            "a dropped service answered");
}

/// Registers a provider on the exchange that sends through it when it is destroyed.
void useExchange(const std::string& name) {
    ++registered;
    const std::shared_ptr<void> held(nullptr, [name](void*) { --registered, requireNoneOnExchange(name); });
    const auto connector = std::make_shared<ConnectorImpl>();
    connector->addServiceProvider(name, provider([held](auto&&...) { return ready("yes"); }));
    require(outcome(send(*connector, name)) == "yes", "the exchange did not answer");
}

/// Does `atExit` as it dies.
struct LastUser {
    std::function<void()> atExit = [] {};
    ~LastUser() { atExit(); }
};

void setMask(std::uint32_t mask) {
    fl::log::setEnabledSeverityMask(LogCapture::channel, mask);
}

/// Runs when all static objects are gone, those of the libraries too, as the threads do that the process ends with.
void useAtTheVeryEnd(int, void*) {
    setMask(fl::log::enabledSeverityMask(LogCapture::channel) | 8);
    use(*newHost());
    requireNoneOnExchange("a");
}

// Before the libraries are initialised, so that it is the last to be called.
[[gnu::section(".preinit_array"), gnu::used]] void (*const first)() = [] { on_exit(useAtTheVeryEnd, nullptr); };

LastUser diesLater; // made before the global below, so it dies after it
const std::shared_ptr<ConnectorImpl2> global = newHost();
LastUser diesEarlier;

/// What main() returns.
int status = 0;

/// The first statement of the process comes to nothing because of `spoil`; what it leaves out must still outlive the
/// statements of destructors that run after what the second one makes.
template <class Spoil>
void failFirstStatement(const Spoil& spoil) {
    const std::uint32_t mask = fl::log::enabledSeverityMask(LogCapture::channel);
    const auto core = boost::log::core::get();
    spoil(*core);
    told([] { send(*global, "nobody"); });
    setMask(mask);
    core->set_logging_enabled(true);
    core->reset_filter();
    std::atexit([] { use(*global); });
    use(*global);
}

/// A sink that calls `body` for each error, and stays.
void setSink(const std::function<void()>& body) {
    static std::atomic<LogCapture*> sink{nullptr}; // the compiler keeps an atomic, so the sink isn't taken for a leak
    sink = new LogCapture(0x200, [body](auto&) { body(); });
}

/// Checks, from its second call on, that nothing has waited since the first one.
void requirePromptEnd() {
    static const int before = yields;
    require(yields == before, "the process waited for nothing");
}

/// Ends the process while another thread is in a log statement, which then takes a while, or `forEver`.
void endWhileLogging(bool forEver) {
    static std::atomic<bool> writing{false}, ending{false}, written{false};
    diesLater.atExit = [forEver] { require(forEver || written, "a statement under way was not waited for"); };
    setSink([forEver] {
        writing = true;
        waitUntil([] { return ending.load(); });
        for (volatile unsigned i = 0; forEver || i < 10'000'000;)
            i = i + 1;
        written = true;
    });
    std::thread([host = newHost()] { use(*host); }).detach();
    waitUntil([] { return writing.load(); });
    std::atexit([] { ending = true; });
}

/// Starts four threads that never stop: they route, use the exchange, log, and wait for replies. Waits until each has
/// done so `atLeast` times.
void startThreads(int atLeast) {
    static std::atomic<int> rounds[4];
    const auto pending = std::make_shared<Promise<MessagePtr>>();
    const auto host = newHost();
    host->addServiceProvider("later",
                             provider([pending](auto&&...) { return (*pending = Promise<MessagePtr>()).future(); }));
    const std::function<void()> bodies[] = {
        [host = newHost()] {
            use(*host);
            host->addServiceProvider("q", provider());
            host->removeServiceProvider("q");
        },
        [host = std::make_shared<ConnectorImpl>()] {
            host->addServiceProvider("passes", provider());
            const std::string got = outcome(send(*host, "passes/x"));
            require(got == "hello@x" || got == "runtime_error: No service named: passes",
                    "the exchange did not answer");
            host->removeServiceProvider("passes");
        },
        [logger = std::make_shared<fl::log::basic_diagnostic_logger<char>>(LogCapture::channel)] {
            FL_LOG(*logger, 0x200) << "a piece";
            const fl::log::basic_diagnostic_logger<char> passing(LogCapture::channel);
            fl::log::setEnabledSeverityMask("other", fl::log::enabledSeverityMask(LogCapture::channel));
        },
        [host] {
            Reply reply = send(*host, "later");
            const Reply next = send(*host, "later"); // drops the promise of the other
            require(outcome(std::move(reply)).find("destroyed") != std::string::npos, "a dropped reply came");
        },
    };
    auto* next = std::begin(rounds);
    for (const auto& body : bodies)
        std::thread([body, &count = *next++] {
            for (;; ++count)
                body();
        }).detach();
    for (const auto& round : rounds)
        waitUntil([&] { return round >= atLeast; });
}

const std::map<std::string, std::function<void()>> orders = {
    {"static",
     [] {
         static const std::shared_ptr<ConnectorImpl2> made = newHost();
         use(*global), use(*made);
     }},
    {"from-an-earlier-destructor", [] { diesEarlier.atExit = [] { use(*global); }; }},
    {"from-a-later-destructor",
     [] {
         use(*global), requirePromptEnd();
         diesLater.atExit = [host = global] { requirePromptEnd(), use(*host); };
     }},
    {"made-in-a-destructor", [] { diesLater.atExit = [] { use(*newHost()); }; }},
    {"exchange-registered", [] { useExchange("a"), diesLater.atExit = [] { useExchange("a"), useExchange("b"); }; }},
    {"first-masked-out", [] { failFirstStatement([](auto&) { setMask(0); }); }},
    {"first-disabled", [] { failFirstStatement([](auto& core) { core.set_logging_enabled(false); }); }},
    {"first-refused", [] { failFirstStatement([](auto& core) { core.set_filter([](auto&) { return false; }); }); }},
    {"first-throws", [] { failFirstStatement([](auto& core) { core.set_filter([](auto&) -> bool { throw 7; }); }); }},
    {"statement-under-way", [] { endWhileLogging(false); }},
    {"statement-without-end", [] { endWhileLogging(true); }},
    {"exit-from-a-sink",
     [] {
         setSink([] {
             requirePromptEnd();
             diesLater.atExit = [] { requirePromptEnd(), use(*newHost()); };
             std::exit(0); // NOLINT(concurrency-mt-unsafe)
         });
         use(*newHost());
     }},
    {"return-in-mid-operation", [] { startThreads(1), status = 7; }},
    {"exit-in-mid-operation", [] { startThreads(0), std::exit(7); }},             // NOLINT(concurrency-mt-unsafe)
    {"quick-exit-in-mid-operation", [] { startThreads(1), std::quick_exit(7); }}, // NOLINT(concurrency-mt-unsafe)
};

} // namespace

int main(int argc, char** argv) {
    setMask(argc > 2 ? 0x308 : 0);
    orders.at(argv[1])();
    return status;
}
