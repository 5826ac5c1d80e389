#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <system_error>

namespace connector::test {
namespace {

using Hook = std::function<void()>;

/// A host with a service, "plain", and hooks in everything that the framework calls under its lock. The hook that is
/// armed runs once.
class Host {
public:
    Host() {
        connector->addServiceProvider("plain", provider());
        special->onStart = [this] { run("start"); };
        special->onStop = [this] { run("stop"); };
        const std::shared_ptr<TestProvider> dying(new TestProvider, [this](TestProvider* provider) {
            run("destruction");
            delete provider; // NOLINT(cppcoreguidelines-owning-memory)
        });
        connector->addServiceProvider("special", special);
        connector->addServiceProvider("dying", dying);
        connector->setProcessContext(std::make_shared<HookedContext>(*this));
    }

    void arm(const char* name, Hook hook) {
        armed = name;
        body = std::move(hook);
    }

    std::set<std::string> names() const { return connector->listServiceProviders(); }

    const std::shared_ptr<ConnectorImpl2> connector = std::make_shared<ConnectorImpl2>();
    const std::shared_ptr<TestProvider> special = provider();

private:
    struct HookedContext : ContextImpl {
        explicit HookedContext(Host& host) : host(host) {}
        std::shared_ptr<Context> newSharedSession() override {
            host.run("newSharedSession");
            return ContextImpl::newSharedSession();
        }
        Host& host;
    };

    void run(const std::string& name) {
        if (name == armed)
            std::exchange(body, [] {})();
    }

    std::string armed;
    Hook body = [] {};
    LogCapture log{0x308, [this](const LogCapture::Record& record) { run(record.text); }};
};

const struct {
    const char* hook; // or the record whose sink it is
    std::function<void(Connector&)> trigger;
} callbacks[] = {
    {"start", [](Connector& connector) { connector.stop(), connector.start(); }},
    {"stop", [](Connector& connector) { connector.stop(); }},
    {"stop", [](Connector& connector) { connector.removeServiceProvider("special"); }},
    {"destruction", [](Connector& connector) { connector.removeServiceProvider("dying"); }},
    {"newSharedSession", [](Connector& connector) { connector.newContext(); }},
    {"Message not delivered: service 'nobody' not found, remainder of address: ",
     [](Connector& connector) { send(connector, "nobody"); }},
    {"Skipping optional service '?nobody'", [](Connector& connector) { send(connector, "?nobody/plain"); }},
    {"Service with name ?plain already registered (or hash collision).",
     [](Connector& connector) { told([&] { connector.addServiceProvider("?plain", provider()); }); }},
    {"Removed service provider: nobody", [](Connector& connector) { connector.removeServiceProvider("nobody"); }},
};

const struct {
    const char* name;
    std::string expected; // of what has to wait for its own thread, a failure
    std::function<std::string(Connector&)> run;
} operations[] = {
    {"handle", "hello@x", [](Connector& connector) { return outcome(send(connector, "plain/x")); }},
    {"handle, not delivered",
     "invalid_argument: Message not delivered: service 'none' not found, remainder of address: ",
     [](Connector& connector) { return outcome(send(connector, "none")); }},
    {"listServiceProviders", "plain",
     [](Connector& connector) { return *connector.listServiceProviders().find("plain"); }},
    {"getName", "default", [](Connector& connector) { return connector.getName(); }},
    {"getPtr", "default", [](Connector& connector) { return connector.getPtr()->getName(); }},
    {"start", "", [](Connector& connector) { return connector.start(), ""; }},
    {"stop", "", [](Connector& connector) { return connector.stop(), ""; }},
    {"addServiceProvider", "refused",
     [](Connector& connector) {
         const auto refused = provider();
         const std::string error = told([&] { connector.addServiceProvider("new", refused); });
         return refused->running || refused.use_count() > 1 ? "kept" : error;
     }},
    {"removeServiceProvider", "refused",
     [](Connector& connector) { return connector.removeServiceProvider("plain"), ""; }},
    {"setProcessContext", "refused", [](Connector& connector) { return connector.setProcessContext(nullptr), ""; }},
    {"newContext", "refused", [](Connector& connector) { return connector.newContext(), ""; }},
};

const std::string refusal = "system_error: Resource deadlock avoided";

TEST(Callbacks, NeverHangTheirOwnConnector) {
    for (const auto& callback : callbacks)
        for (const auto& operation : operations)
            for (const bool writerWaits : {false, true}) {
                SCOPED_TRACE(std::string(operation.name) + " from " + callback.hook +
                             (writerWaits ? " while a writer waits" : ""));
                Host host;
                std::thread writer;
                bool came = false;
                host.arm(callback.hook, [&] {
                    came = true;
                    if (writerWaits)
                        writer = startAndAwaitSleep([&] { host.connector->setProcessContext(nullptr); });
                    const std::set<std::string> before = host.names();
                    EXPECT_EQ(told([&] { return operation.run(*host.connector); }),
                              operation.expected == "refused" ? refusal : operation.expected);
                    EXPECT_EQ(host.names(), before);
                });
                callback.trigger(*host.connector);
                if (writer.joinable())
                    writer.join();
                EXPECT_TRUE(came);
                host.connector->addServiceProvider("afterwards", provider()); // nothing is held any more
                EXPECT_EQ(host.names().count("afterwards"), 1u);
            }
}

// The destructors of what a connector drops may call it to the end: a provider's under the lock, the context's without.
TEST(Callbacks, FromAConnectorsDestructionFindNoProviders) {
    LogCapture silence(0);
    std::vector<std::string> found;
    auto connector = std::make_shared<ConnectorImpl2>("mine");
    const auto look = [&found, raw = connector.get()](auto* dying) {
        found.push_back(outcome(send(*raw, "p")) + std::to_string(raw->listServiceProviders().size()) + raw->getName() +
                        told([raw] { raw->newContext(); }));
        delete dying; // NOLINT(cppcoreguidelines-owning-memory)
    };
    connector->addServiceProvider("p", std::shared_ptr<TestProvider>(new TestProvider, look));
    connector->setProcessContext(std::shared_ptr<ContextImpl>(new ContextImpl(connector), look));
    connector.reset();
    const std::string nobody =
        "invalid_argument: Message not delivered: service 'p' not found, remainder of address: 0mine";
    EXPECT_THAT(found, testing::ElementsAre(nobody + refusal, nobody + "bad_weak_ptr: bad_weak_ptr"));
}

TEST(Callbacks, OfOneConnectorChangeAnother) {
    Host outer;
    Host inner;
    inner.arm("stop", [&] {
        EXPECT_EQ(told([&] { outer.connector->newContext(); }), refusal); // this thread has it, two holds further out
        EXPECT_EQ(outer.names().size(), 3u);
    });
    outer.arm("stop", [&] {
        inner.connector->removeServiceProvider("special");
        inner.connector->addServiceProvider("new", provider());
        EXPECT_NE(inner.connector->newContext(), nullptr);
    });
    outer.connector->stop();
    EXPECT_EQ(inner.special->stops, 1);
    EXPECT_EQ(inner.names(), (std::set<std::string>{"dying", "new", "plain"}));
}

} // namespace
} // namespace connector::test
