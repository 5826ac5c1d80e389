// A process for each way in which a connector may live and die with the process itself. The first argument says which.

#include "support/Messages.h"

#include <connector/async/Promise.h>
#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>
#include <fl/log/basic_diagnostic_logger.h>

#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <cstdlib>
#include <functional>
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

std::shared_ptr<ConnectorImpl2> newHost() {
    auto host = std::make_shared<ConnectorImpl2>();
    host->addServiceProvider("p", provider());
    return host;
}

void require(bool condition, const char* what) {
    if (!condition) {
        std::cerr << what << '\n';
        std::_Exit(3);
    }
}

/// Routes one message that is answered and one that isn't, which is logged.
void use(Connector& host) {
    require(outcome(send(host, "p/x")) == "hello@x", "a message was not answered");
    require(outcome(send(host, "nobody")).find("not found") != std::string::npos, "a message was answered by nobody");
}

/// The providers on the exchange that must have been destroyed when the process ends, and were.
int expectedFarewells = 0, farewells = 0;
const struct Farewells {
    ~Farewells() { require(farewells == expectedFarewells, "a provider was not destroyed once"); }
} checkedAtTheEnd;

std::string sendThroughExchange(const std::string& name) {
    return outcome(send(*std::make_shared<ConnectorImpl>(), name));
}

/// Registers a provider on the exchange that sends through it when it is destroyed.
void useExchange(const std::string& name) {
    ++expectedFarewells;
    const std::shared_ptr<void> held(nullptr, [name](void*) {
        ++farewells;
        require(sendThroughExchange(name) == "runtime_error: No service named: " + name, "a dropped service answered");
    });
    std::make_shared<ConnectorImpl>()->addServiceProvider(name, provider([held](auto&&...) { return ready("yes"); }));
    require(sendThroughExchange(name) == "yes", "the exchange did not answer");
}

/// Uses a connector as it dies; set by those whose order it is.
struct LastUser {
    std::function<void()> atExit;
    ~LastUser() {
        if (atExit)
            atExit();
    }
};

/// Runs when all static objects are gone, those of the libraries too, as the threads do that the process ends with.
void useAtTheVeryEnd(int, void*) {
    fl::log::setEnabledSeverityMask("connector::framework", fl::log::enabledSeverityMask("connector::framework") | 8);
    use(*newHost());
    require(sendThroughExchange("a") == "runtime_error: No service named: a", "a dropped service answered");
}

// Before the libraries are initialised, so that it is the last to be called.
[[gnu::section(".preinit_array"), gnu::used]] void (*const first)() = [] { on_exit(useAtTheVeryEnd, nullptr); };

LastUser diesLater; // made before the global below, so it dies after it
const std::shared_ptr<ConnectorImpl2> global = newHost();
LastUser diesEarlier;

std::shared_ptr<ConnectorImpl2>& functionStatic() {
    static std::shared_ptr<ConnectorImpl2> host = newHost();
    return host;
}

/// What main() returns.
int status = 0;

/// The first statement of the process comes to nothing because of `spoil`; what it leaves out must still outlive the
/// statements of destructors that run after what the second one makes.
std::function<void()> firstStatement(void (*spoil)()) {
    return [spoil] {
        const std::uint32_t mask = fl::log::enabledSeverityMask("connector::framework");
        const auto core = boost::log::core::get();
        spoil();
        try {
            send(*global, "nobody");
        } catch (const std::domain_error&) {
        }
        fl::log::setEnabledSeverityMask("connector::framework", mask);
        core->set_logging_enabled(true);
        core->reset_filter();
        std::atexit([] { use(*global); });
        use(*global);
    };
}

/// A sink that calls `body` for each record.
struct Sink : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
    explicit Sink(std::function<void()> body) : body(std::move(body)) {}
    void consume(const boost::log::record_view&) const { body(); }
    const std::function<void()> body;
};
void setSink(const std::function<void()>& body) {
    fl::log::setEnabledSeverityMask("connector::framework", 0x200);
    boost::log::core::get()->add_sink(
        boost::make_shared<boost::log::sinks::synchronous_sink<Sink>>(boost::make_shared<Sink>(body)));
}

/// Checks, from its second call on, that nothing has waited since the first one.
void requirePromptEnd() {
    static const int before = yields;
    require(yields == before, "the process waited for nothing");
}

/// Ends the process while another thread is in a log statement; `rest` is what that still does then.
void endWhileLogging(void (*rest)()) {
    static std::atomic<bool> writing{false}, ending{false}, written{false};
    diesLater.atExit = [] { require(written, "a statement under way was not waited for"); };
    setSink([rest] {
        writing = true;
        while (!ending)
            std::this_thread::yield();
        rest();
        written = true;
    });
    std::thread([host = newHost()] { use(*host); }).detach();
    while (!writing)
        std::this_thread::yield();
    std::atexit([] { ending = true; });
}

/// Starts four threads that never stop: they route, use the exchange, log, and wait for replies. Waits until each has
/// done so `atLeast` times.
void startThreads(int atLeast) {
    static std::atomic<int> rounds[4];
    const auto start = [](int index, auto body) {
        std::thread([index, body]() mutable {
            for (;; ++rounds[index])
                body();
        }).detach();
    };
    start(0, [host = newHost()] {
        use(*host);
        host->addServiceProvider("q", provider());
        host->removeServiceProvider("q");
    });
    start(1, [host = std::make_shared<ConnectorImpl>()] {
        host->addServiceProvider("passes", provider());
        const std::string got = outcome(send(*host, "passes/x"));
        require(got == "hello@x" || got == "runtime_error: No service named: passes", "the exchange did not answer");
        host->removeServiceProvider("passes");
    });
    start(2, [logger = std::make_shared<fl::log::basic_diagnostic_logger<char>>("connector::framework")] {
        FL_LOG(*logger, 0x200) << "a piece";
        const fl::log::basic_diagnostic_logger<char> passing("connector::framework");
        fl::log::setEnabledSeverityMask("other", fl::log::enabledSeverityMask("connector::framework"));
    });
    const auto host = newHost();
    const auto pending = std::make_shared<Promise<MessagePtr>>();
    host->addServiceProvider("later", provider([pending](auto&&...) {
                                 *pending = Promise<MessagePtr>();
                                 return pending->future();
                             }));
    start(3, [host, pending] {
        Reply reply = send(*host, "later");
        const Reply next = send(*host, "later"); // drops the promise of the other
        require(outcome(std::move(reply)).find("destroyed") != std::string::npos, "a dropped reply came");
    });
    for (const auto& round : rounds)
        while (round < atLeast)
            std::this_thread::yield();
}

const std::map<std::string, std::function<void()>> orders = {
    {"global", [] { use(*global); }},
    {"function-static", [] { use(*functionStatic()); }},
    {"from-an-earlier-destructor", [] { diesEarlier.atExit = [] { use(*global); }; }},
    {"from-a-later-destructor",
     [] {
         use(*global), requirePromptEnd();
         diesLater.atExit = [host = global] { requirePromptEnd(), use(*host); };
     }},
    {"made-in-a-destructor", [] { diesLater.atExit = [] { use(*newHost()); }; }},
    {"exchange-registered", [] { useExchange("a"); }},
    {"exchange-registered-in-a-destructor",
     [] {
         useExchange("a");
         diesLater.atExit = [] { useExchange("a"), useExchange("b"); };
     }},
    {"first-masked-out", firstStatement([] { fl::log::setEnabledSeverityMask("connector::framework", 0); })},
    {"first-disabled", firstStatement([] { boost::log::core::get()->set_logging_enabled(false); })},
    {"first-refused", firstStatement([] { boost::log::core::get()->set_filter([](auto&) { return false; }); })},
    {"first-throws", firstStatement([] {
         boost::log::core::get()->set_filter([](auto&) -> bool { throw std::domain_error("filter"); });
     })},
    {"statement-under-way",
     [] {
         endWhileLogging([] {
             for (volatile int i = 0; i < 10'000'000;)
                 i = i + 1;
         });
     }},
    {"statement-without-end",
     [] {
         endWhileLogging([] {
             for (;;)
                 std::this_thread::yield();
         });
         diesLater.atExit = nullptr;
     }},
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
    fl::log::setEnabledSeverityMask("connector::framework", argc > 2 ? 0x308 : 0);
    orders.at(argv[1])();
    return status;
}
