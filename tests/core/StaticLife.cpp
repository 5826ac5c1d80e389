// A process for each way in which a connector may live and end with the process itself. The first argument names the
// way; a second one has everything logged.

#include "support/Futures.h"
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

using Body = std::function<void()>;

void require(bool condition, const std::string& what) {
    if (!condition) {
        std::cerr << what << '\n';
        std::_Exit(3);
    }
}

void requireReply(Reply&& reply, const std::string& expected) {
    const std::string got = outcome(std::move(reply));
    require(got == expected, "'" + got + "' instead of '" + expected + "'");
}

void waitUntil(const std::atomic<bool>& condition) {
    while (!condition)
        std::this_thread::yield();
}

std::shared_ptr<ConnectorImpl2> newHost() {
    auto host = std::make_shared<ConnectorImpl2>();
    host->addServiceProvider("p", provider());
    return host;
}

/// A message that is answered, one that isn't, which is logged, and one whose promise is dropped.
void use(Connector& host) {
    requireReply(send(host, "p/x"), "hello@x");
    requireReply(send(host, "nobody"),
                 "invalid_argument: Message not delivered: service 'nobody' not found, remainder of address: ");
    Reply dropped = Promise<MessagePtr>().future();
    requireReply(std::move(dropped), "runtime_error: Promise destroyed before it was resolved.");
}

int registered = 0; // providers on the exchange that are not yet destroyed

void requireNoneOnExchange(const std::string& name) {
    requireReply(send(*std::make_shared<ConnectorImpl>(), name), "runtime_error: No service named: " + name);
}

/// Registers a provider on the exchange that sends through it when it is destroyed.
void useExchange(const std::string& name) {
    ++registered;
    const auto connector = std::make_shared<ConnectorImpl>();
    const auto held = atEnd([name] { --registered, requireNoneOnExchange(name); });
    connector->addServiceProvider(name, provider([held](auto&&...) { return ready("yes"); }));
    requireReply(send(*connector, name), "yes");
}

/// Runs when all static objects are destroyed, those of the libraries too, as the threads do that the process ends
/// with.
void useAtTheVeryEnd(int, void*) {
    fl::log::setEnabledSeverityMask(LogCapture::channel, fl::log::enabledSeverityMask(LogCapture::channel) | 8);
    use(*newHost());
    requireNoneOnExchange("a");
    require(registered == 0, "a provider was not destroyed once");
}

// Before the libraries are initialised, so that it is the last to be called.
[[gnu::section(".preinit_array"), gnu::used]] void (*const first)() = [] { on_exit(useAtTheVeryEnd, nullptr); };

struct LastUser {
    Body atExit = [] {};
    ~LastUser() { atExit(); }
};
LastUser later; // made before the global below, so destroyed after it
const std::shared_ptr<ConnectorImpl2> global = newHost();
LastUser earlier;

/// The first statement of the process comes to nothing because of `spoil`; what it leaves out must still outlive the
/// statements of destructors that run after what the second one makes.
template <class Spoil>
void failFirstStatement(const Spoil& spoil) {
    const auto core = boost::log::core::get();
    spoil(*core);
    told([] { send(*global, "nobody"); });
    core->set_logging_enabled(true);
    core->reset_filter();
    std::atexit([] { use(*global); });
    use(*global);
}

/// A sink that calls `body` for each error, and stays.
void setSink(const Body& body) {
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
    later.atExit = [forEver] { require(forEver || written, "a statement under way was not waited for"); };
    setSink([forEver] {
        writing = true;
        waitUntil(ending);
        for (volatile unsigned i = 0; forEver || i < 10'000'000;)
            i = i + 1;
        written = true;
    });
    std::thread([host = newHost()] { use(*host); }).detach();
    waitUntil(writing);
    std::atexit([] { ending = true; });
}

/// Starts a thread that never stops. Waits until it has run `body` once, if `awaited`.
void repeat(bool awaited, const Body& body) {
    const auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread([body, done] {
        for (;; *done = true)
            body();
    }).detach();
    if (awaited)
        waitUntil(*done);
}

void startThreads(bool awaited) {
    repeat(awaited, [host = newHost()] {
        use(*host);
        host->addServiceProvider("q", provider());
        host->removeServiceProvider("q");
    });
    repeat(awaited, [host = std::make_shared<ConnectorImpl>()] {
        host->addServiceProvider("passes", provider());
        const std::string got = outcome(send(*host, "passes")); // the end of the process may drop the service
        require(got == "hello@" || got == "runtime_error: No service named: passes", got);
        host->removeServiceProvider("passes");
    });
    repeat(awaited, [logger = std::make_shared<fl::log::basic_diagnostic_logger<char>>(LogCapture::channel)] {
        FL_LOG(*logger, 0x200) << "a piece";
        const fl::log::basic_diagnostic_logger<char> passing(LogCapture::channel);
        fl::log::setEnabledSeverityMask("other", fl::log::enabledSeverityMask(LogCapture::channel));
    });
}

int status = 0; // of main()

const std::map<std::string, Body> ways = {
    {"from-an-earlier-destructor", [] { earlier.atExit = [] { use(*global); }; }},
    {"from-a-later-destructor",
     [] {
         use(*global), requirePromptEnd();
         later.atExit = [host = global] { requirePromptEnd(), use(*host); };
     }},
    {"made-in-a-destructor", [] { later.atExit = [] { use(*newHost()); }; }},
    {"exchange-registered", [] { useExchange("a"), later.atExit = [] { useExchange("a"), useExchange("b"); }; }},
    {"first-disabled", [] { failFirstStatement([](auto& core) { core.set_logging_enabled(false); }); }},
    {"first-refused", [] { failFirstStatement([](auto& core) { core.set_filter([](auto&) { return false; }); }); }},
    {"first-throws", [] { failFirstStatement([](auto& core) { core.set_filter([](auto&) -> bool { throw 7; }); }); }},
    {"statement-under-way", [] { endWhileLogging(false); }},
    {"statement-without-end", [] { endWhileLogging(true); }},
    {"exit-from-a-sink",
     [] {
         setSink([] {
             requirePromptEnd();
             later.atExit = [] { requirePromptEnd(), use(*newHost()); };
             std::exit(0); // NOLINT(concurrency-mt-unsafe)
         });
         use(*newHost());
     }},
    {"return-in-mid-operation", [] { startThreads(true), status = 7; }},
    {"exit-in-mid-operation", [] { startThreads(false), std::exit(7); }},            // NOLINT(concurrency-mt-unsafe)
    {"quick-exit-in-mid-operation", [] { startThreads(true), std::quick_exit(7); }}, // NOLINT(concurrency-mt-unsafe)
};

} // namespace

int main(int argc, char** argv) {
    fl::log::setEnabledSeverityMask(LogCapture::channel, argc > 2 ? 0x308 : 0);
    ways.at(argv[1])();
    return status;
}
