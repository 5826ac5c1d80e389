#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <chrono>
#include <fstream>
#include <future>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace connector::test {
namespace {

/// Runs `body` on a thread of its own, and returns once that thread sleeps: it waits for something that it can't have.
std::thread startAndAwaitSleep(std::function<void()> body) {
    std::promise<long> started;
    std::future<long> id = started.get_future();
    std::thread thread([started = std::move(started), body = std::move(body)]() mutable {
        started.set_value(syscall(SYS_gettid));
        body();
    });
    const std::string status = "/proc/self/task/" + std::to_string(id.get()) + "/stat";
    for (char state = 0; state != 'S'; std::this_thread::yield()) {
        std::string line;
        std::getline(std::ifstream(status), line);
        state = line.at(line.rfind(')') + 2);
    }
    return thread;
}

/// Runs a host's function when it dies, or when the connector derives a context from it.
class Hooked : public ContextImpl {
public:
    explicit Hooked(std::function<void()> hook) : hook(std::move(hook)) {}
    std::shared_ptr<Context> newSharedSession() override {
        hook();
        return ContextImpl::newSharedSession();
    }

private:
    const std::function<void()> hook;
};

/// A host with two services, one of which can be made to come back to the connector from everywhere that the framework
/// calls host code under its lock.
class Host {
public:
    const std::shared_ptr<ConnectorImpl2> connector = std::make_shared<ConnectorImpl2>();
    std::shared_ptr<TestProvider> special = provider();

    Host() {
        connector->addServiceProvider("plain", provider());
        connector->addServiceProvider("special", special);
    }

    void replaceProcessContext(std::function<void()> hook) {
        connector->setProcessContext(std::make_shared<Hooked>(std::move(hook)));
    }

    std::set<std::string> names() { return connector->listServiceProviders(); }
};

struct Callback {
    const char* name;
    std::function<void(Host&, std::function<void()>)> trigger; // makes the framework run the function under its lock
};

struct Operation {
    const char* name;
    bool works; // or would have to wait for its own thread
    std::function<void(Host&)> run;
};

std::function<void()> once(std::function<void()> body) {
    return [body = std::move(body), done = std::make_shared<bool>(false)] {
        if (!*done) {
            *done = true;
            body();
        }
    };
}

void logging(std::uint32_t severity, const std::function<void()>& body, const std::function<void()>& trigger) {
    LogCapture log(severity, [only = once(body)](const LogCapture::Record&) { only(); });
    trigger();
}

const Callback callbacks[] = {
    {"start",
     [](Host& host, std::function<void()> body) {
         host.connector->stop();
         host.special->onStart = once(std::move(body));
         host.connector->start();
     }},
    {"stop",
     [](Host& host, std::function<void()> body) {
         host.special->onStop = once(std::move(body));
         host.connector->stop();
     }},
    {"stop in a removal",
     [](Host& host, std::function<void()> body) {
         host.special->onStop = once(std::move(body));
         host.connector->removeServiceProvider("special");
     }},
    {"destruction in a removal",
     [](Host& host, const std::function<void()>& body) {
         host.connector->addServiceProvider(
             "dying", std::shared_ptr<TestProvider>(new TestProvider, [body](TestProvider* dying) {
                 body();
                 delete dying; // NOLINT(cppcoreguidelines-owning-memory)
             }));
         host.connector->removeServiceProvider("dying");
     }},
    {"newSharedSession",
     [](Host& host, std::function<void()> body) {
         host.replaceProcessContext(once(std::move(body)));
         host.connector->newContext();
     }},
    {"sink, not delivered",
     [](Host& host, const std::function<void()>& body) {
         logging(0x200, body, [&] { send(*host.connector, "nobody"); });
     }},
    {"sink, skipped",
     [](Host& host, const std::function<void()>& body) {
         logging(0x8, body, [&] { send(*host.connector, "?nobody/plain"); });
     }},
    {"sink, name taken",
     [](Host& host, const std::function<void()>& body) {
         logging(0x200, body,
                 [&] { EXPECT_THROW(host.connector->addServiceProvider("plain", provider()), std::runtime_error); });
     }},
    {"sink, removed",
     [](Host& host, const std::function<void()>& body) {
         logging(0x8, body, [&] { host.connector->removeServiceProvider("nobody"); });
     }},
};

const Operation operations[] = {
    {"handle", true, [](Host& host) { EXPECT_EQ(outcome(send(*host.connector, "plain/x")), "hello@x"); }},
    {"handle, not delivered", true,
     [](Host& host) { EXPECT_THAT(outcome(send(*host.connector, "none")), testing::HasSubstr("'none' not found")); }},
    {"listServiceProviders", true, [](Host& host) { EXPECT_EQ(host.names().count("plain"), 1u); }},
    {"getName", true, [](Host& host) { EXPECT_EQ(host.connector->getName(), "default"); }},
    {"getPtr", true, [](Host& host) { EXPECT_EQ(host.connector->getPtr(), host.connector); }},
    {"start", true, [](Host& host) { host.connector->start(); }},
    {"stop", true, [](Host& host) { host.connector->stop(); }},
    {"addServiceProvider", false,
     [](Host& host) {
         const auto refused = provider();
         try {
             host.connector->addServiceProvider("new", refused);
         } catch (...) {
             EXPECT_FALSE(refused->running);
             EXPECT_EQ(refused.use_count(), 1);
             throw;
         }
     }},
    {"removeServiceProvider", false, [](Host& host) { host.connector->removeServiceProvider("plain"); }},
    {"setProcessContext", false, [](Host& host) { host.connector->setProcessContext(nullptr); }},
    {"newContext", false, [](Host& host) { host.connector->newContext(); }},
};

TEST(Callbacks, NeverHangTheirOwnConnector) {
    LogCapture silence(0);
    for (const Callback& callback : callbacks)
        for (const Operation& operation : operations)
            for (const bool writerWaits : {false, true}) {
                SCOPED_TRACE(std::string(operation.name) + " from " + callback.name +
                             (writerWaits ? " while a writer waits" : ""));
                Host host;
                std::thread writer;
                bool came = false;
                const auto begin = std::chrono::steady_clock::now();
                callback.trigger(host, [&] {
                    came = true;
                    if (writerWaits)
                        writer = startAndAwaitSleep([&] { host.connector->setProcessContext(nullptr); });
                    const std::set<std::string> before = host.names();
                    std::errc refusedWith{};
                    try {
                        operation.run(host);
                    } catch (const std::system_error& error) {
                        refusedWith = static_cast<std::errc>(error.code().value());
                    }
                    EXPECT_EQ(refusedWith, operation.works ? std::errc() : std::errc::resource_deadlock_would_occur);
                    EXPECT_EQ(host.names(), before);
                });
                if (writer.joinable())
                    writer.join();
                EXPECT_TRUE(came);
                EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
                // Nothing is held any more.
                host.connector->addServiceProvider("afterwards", provider());
                EXPECT_EQ(host.names().count("afterwards"), 1u);
            }
}

// The destructors of what a connector drops may come back to it to the end.
TEST(Callbacks, FromAConnectorsDestructionFindNoProviders) {
    LogCapture silence(0);
    std::vector<std::string> found;
    auto connector = std::make_shared<ConnectorImpl2>("mine");
    const auto look = [&found, raw = connector.get()](auto* dying) {
        found.push_back(outcome(send(*raw, "p")) + ", " + std::to_string(raw->listServiceProviders().size()) + " in " +
                        raw->getName());
        delete dying; // NOLINT(cppcoreguidelines-owning-memory)
    };
    connector->addServiceProvider("p", std::shared_ptr<TestProvider>(new TestProvider, look));
    connector->setProcessContext(std::shared_ptr<ContextImpl>(new ContextImpl(connector), look));
    connector.reset();
    EXPECT_THAT(found, testing::ElementsAre(testing::EndsWith("'p' not found, remainder of address: , 0 in mine"),
                                            testing::EndsWith("'p' not found, remainder of address: , 0 in mine")));
}

TEST(Callbacks, OfOneConnectorChangeAnother) {
    LogCapture silence(0);
    Host outer;
    Host inner;
    inner.special->onStop = [&] {
        EXPECT_THROW(outer.connector->newContext(), std::system_error); // this thread has it, two holds further out
        EXPECT_EQ(outer.names().size(), 2u);
    };
    outer.special->onStop = [&] {
        inner.connector->removeServiceProvider("special");
        inner.connector->addServiceProvider("new", provider());
        EXPECT_NE(inner.connector->newContext(), nullptr);
    };
    outer.connector->stop();
    EXPECT_EQ(inner.special->stops, 1);
    EXPECT_EQ(inner.names(), (std::set<std::string>{"new", "plain"}));
}

} // namespace
} // namespace connector::test
