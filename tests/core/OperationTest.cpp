// Every operation that a host has: called from host code under the connector's lock, without memory, and while a log
// sink throws.

#include "support/Allocations.h"
#include "support/Futures.h"
#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <optional>

namespace connector::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;

const std::string longName = "a name that fits no small string";
const std::string longText = "a text that fits no small string either";
const std::string noSuchService = "Message not delivered: service 'nobody' not found, remainder of address: ";
const std::string refused = "system_error: Resource deadlock avoided";

/// The objects that the operations work on, with hooks in all host code that the connector calls under its lock. The
/// hook that is armed runs once.
struct Host {
    explicit Host(std::uint32_t mask = 0x308)
        : log(mask, [this](const auto& record) { run(record.text), run("any record"); }) {
        hooked->onStart = [this] { run("start"); };
        hooked->onStop = [this] { run("stop"); };
        connector->addServiceProvider("hooked", std::exchange(hooked, nullptr));
        connector->addServiceProvider("echo", echo());
        connector->addServiceProvider("keep", keeper(kept));
        connector->addServiceProvider("throw", thrower(7, &kept));
        connector->setProcessContext(std::make_shared<HookedContext>(*this));
        context = connector->newContext();
        context->set("key", 1, ContextScope::Session);
    }

    void arm(const char* name, std::function<void()> hook) {
        armed = name;
        body = std::move(hook);
    }

    void send(const char* address) {
        reply = connector->handle(std::move(message), Address(address), std::shared_ptr<Context>(context));
    }

    /// The text of the reply or "done", or the type and text of the failure.
    std::string outcome(const std::function<void(Host&)>& operation) {
        const std::string got = told([&] { operation(*this); });
        return reply && got == "done" ? takeReply() : got;
    }
    std::string takeReply() {
        return told([this] { return text(replied = reply->get()); });
    }

    /// The registered names, and "mine" if the message is still the caller's.
    std::string left() const {
        std::string names;
        for (const std::string& name : connector->listServiceProviders())
            names += name + " ";
        return names + (message ? "mine" : "");
    }

    /// Whatever happened, nothing is half done: the tables agree, no lock is held, each thing has one owner.
    void check() {
        if (reply)
            takeReply();
        EXPECT_EQ((message ? 1 : 0) + (kept ? 1 : 0) + (replied ? 1 : 0), alive.use_count() - 1);
        const std::set<std::string> listed = connector->listServiceProviders();
        EXPECT_EQ(added->starts == 1, listed.count(longName) == 1);
        EXPECT_EQ(added.use_count() == 2, listed.count(longName) == 1);
        for (const std::string& name : {std::string("keep"), std::string("throw"), longName})
            EXPECT_EQ(test::outcome(test::send(*connector, name)).find("not found") == std::string::npos,
                      listed.count(name) == 1);
        for (const std::string& name : listed)
            connector->removeServiceProvider(name);
        EXPECT_TRUE(connector->listServiceProviders().empty());
        for (const std::string& name : listed)
            connector->addServiceProvider(name, provider());
        EXPECT_EQ(connector->listServiceProviders(), listed);
        EXPECT_TRUE(connector->newContext());
        context->set("afterwards", 1, ContextScope::Local);
        EXPECT_EQ(context->has(longName), !context->get(longName, ContextScope::Local).empty());
        EXPECT_THAT(address.toString(), AnyOf(longName + "/rest", "rest"));
        EXPECT_THAT(assigned.toString(), AnyOf(longName + "/rest", "y"));
        EXPECT_EQ(state->status == detail::FutureStatus::Pending, state.use_count() == 1); // or `reply` is its future
    }

    struct HookedContext : ContextImpl {
        explicit HookedContext(Host& host) : ContextImpl(host.connector), host(host) {}
        std::shared_ptr<Context> newSharedSession() override {
            host.run("newSharedSession");
            return ContextImpl::newSharedSession();
        }
        Host& host;
    };
    void run(std::string_view name) {
        if (name == armed)
            std::exchange(body, [] {})();
    }
    std::string_view armed;
    std::function<void()> body = [] {};
    std::shared_ptr<TestProvider> hooked =
        provider([held = atEnd([this] { run("destruction"); })](auto&&...) { return ready(""); });

    const LogCapture log;
    const std::shared_ptr<ConnectorImpl2> connector = std::make_shared<ConnectorImpl2>();
    const std::shared_ptr<TestProvider> added = provider();
    const std::shared_ptr<int> alive = std::make_shared<int>(0); // counts messages
    MessagePtr message = std::make_unique<TextMessage>(longText, alive);
    MessagePtr kept; // what a provider received
    MessagePtr replied;
    std::optional<Reply> reply;
    std::shared_ptr<Context> context;
    boost::any value = longName;
    Address address{longName + "/rest"}, assigned = [](Address popped) {
        popped.pop();
        return popped;
    }(Address("x/y"));
    const std::shared_ptr<State> state = std::make_shared<State>();
};

const std::string untouched = "echo hooked keep throw mine";

const struct Operation {
    const char* name;
    std::function<void(Host&)> run;
    std::string underTheLock = "done"; // its result in a callback
    std::string left = {};             // if it logs: the names and the message left when the sink throws
} operations[] = {
    {"construct", [](Host&) { ConnectorImpl2{longName}; }},
    {"add", [](Host& host) { host.connector->addServiceProvider(longName, host.added); }, refused, untouched},
    {"add, taken", [](Host& host) { host.connector->addServiceProvider("echo", host.added); }, refused, untouched},
    {"remove", [](Host& host) { host.connector->removeServiceProvider("echo"); }, refused, "hooked keep throw mine"},
    {"list, name, pointer",
     [](Host& host) { host.connector->listServiceProviders(), host.connector->getPtr()->getName(); }},
    {"stop, start", [](Host& host) { host.connector->stop(), host.connector->start(); }},
    {"handle, kept", [](Host& host) { host.send("keep"); }, "(no message)"},
    {"handle, answered", [](Host& host) { host.send("?optional service/echo"); }, longText, untouched},
    {"handle, thrown", [](Host& host) { host.send("throw"); }, "not an exception", "echo hooked keep throw "},
    {"handle, not delivered", [](Host& host) { host.send("a service that nobody has registered/rest"); },
     "invalid_argument: Message not delivered: service 'a service that nobody has registered' not found, remainder of "
     "address: rest",
     untouched},
    {"handle, no address", [](Host& host) { host.send(""); },
     "invalid_argument: No service specified. Address can't be empty."},
    {"handle, by a context",
     [](Host& host) { host.reply = host.context->handle(std::move(host.message), Address("echo")); }, longText},
    {"handle, connector gone",
     [](Host& host) { host.reply = std::make_shared<ContextImpl>()->handle(std::move(host.message), Address("echo")); },
     "runtime_error: Connector instance went away!"},
    {"newContext", [](Host& host) { host.connector->newContext()->newSession()->newRequest()->newLocal(); }, refused},
    {"newContext, the first",
     [](Host& host) { host.connector->setProcessContext(nullptr), host.connector->newContext(); }, refused},
    {"context, set", [](Host& host) { host.context->set(longName, host.value, ContextScope::Local); }},
    {"context, replace", [](Host& host) { host.context->set("key", host.value, ContextScope::Session); }},
    {"context, get", [](Host& host) { host.context->get("key"); }},
    {"context, erase", [](Host& host) { host.context->erase("key", ContextScope::Session); }},
    {"setEnabledSeverityMask", [](Host&) { fl::log::setEnabledSeverityMask(longName, 0x8); }},
    {"address, copy", [](Host& host) { host.address = Address(host.address); }},
    {"address, assign", [](Host& host) { host.assigned = host.address; }},
    {"address, pop", [](Host& host) { host.address.pop(); }},
    {"setValue", [](Host& host) { host.state->setValue(std::move(host.message)), host.reply.emplace(host.state); },
     longText},
    {"setException", [](Host& host) { host.state->setException(nullptr), host.reply.emplace(host.state); },
     "not an exception"},
};

TEST(Fault, OfMemoryLosesNothing) {
    for (const std::uint32_t mask : {0u, 0x308u})
        for (const Operation& operation : operations)
            withEachAllocationFailing([&](const auto& attempt) {
                SCOPED_TRACE(std::string(operation.name) + (mask ? ", logging" : ""));
                Host host(mask);
                attempt([&] { operation.run(host); });
                host.check();
            });
}

// A sink that throws ends the operation that logs, at the line that it logs; the changes made before that line stay.
TEST(Fault, OfASinkEndsTheOperationThatLogsAndNothingElse) {
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        Host host;
        host.arm("any record", [] { throw std::domain_error("disk full"); });
        const std::string quiet = operation.underTheLock == refused ? "done" : operation.underTheLock;
        EXPECT_EQ(host.outcome(operation.run), operation.left.empty() ? quiet : "domain_error: disk full");
        EXPECT_EQ(operation.left.empty() ? "" : host.left(), operation.left);
        host.arm("none", [] {});
        host.check();
    }
}

const struct {
    std::string hook; // or the record whose sink it is
    std::function<void(Connector&)> trigger;
} callbacks[] = {
    {"start", [](Connector& connector) { connector.stop(), connector.start(); }},
    {"stop", [](Connector& connector) { connector.stop(); }},
    {"stop", [](Connector& connector) { connector.removeServiceProvider("hooked"); }},
    {"destruction", [](Connector& connector) { connector.removeServiceProvider("hooked"); }},
    {"newSharedSession", [](Connector& connector) { connector.newContext(); }},
    {noSuchService, [](Connector& connector) { send(connector, "nobody"); }},
    {"Skipping optional service '?nobody'", [](Connector& connector) { send(connector, "?nobody/echo"); }},
    {"Service with name ?echo already registered (or hash collision).",
     [](Connector& connector) { told([&] { connector.addServiceProvider("?echo", provider()); }); }},
    {"Removed service provider: nobody", [](Connector& connector) { connector.removeServiceProvider("nobody"); }},
};

TEST(Callbacks, NeverHangTheirOwnConnector) {
    for (const auto& callback : callbacks)
        for (const Operation& operation : operations)
            for (const bool writerWaits : {false, true}) {
                SCOPED_TRACE(std::string(operation.name) + " from " + callback.hook +
                             (writerWaits ? " while a writer waits" : ""));
                Host host;
                std::thread writer;
                std::string got = "never came";
                host.arm(callback.hook.c_str(), [&] {
                    if (writerWaits)
                        writer = startAndAwaitSleep([&] { host.connector->setProcessContext(nullptr); });
                    const std::set<std::string> before = host.connector->listServiceProviders();
                    got = host.outcome(operation.run);
                    EXPECT_EQ(host.connector->listServiceProviders(), before);
                });
                callback.trigger(*host.connector);
                if (writer.joinable())
                    writer.join();
                EXPECT_EQ(got, operation.underTheLock);
                host.check();
            }
}

// Destructors may call the connector that destroys them: a provider's under the lock, the context's without it.
TEST(Callbacks, FromAConnectorsDestructionFindNoProviders) {
    LogCapture silence(0);
    std::vector<std::string> found;
    auto connector = std::make_shared<ConnectorImpl2>("mine");
    const auto look = [&found, raw = connector.get()](auto* destroyed) {
        found.push_back(outcome(send(*raw, "nobody")) + std::to_string(raw->listServiceProviders().size()) +
                        raw->getName() + told([raw] { raw->newContext(); }));
        delete destroyed; // NOLINT(cppcoreguidelines-owning-memory)
    };
    connector->addServiceProvider("nobody", std::shared_ptr<TestProvider>(new TestProvider, look));
    connector->setProcessContext(std::shared_ptr<ContextImpl>(new ContextImpl(connector), look));
    connector.reset();
    const std::string none = "invalid_argument: " + noSuchService + "0mine";
    EXPECT_THAT(found, ElementsAre(none + refused, none + "bad_weak_ptr: bad_weak_ptr"));
}

TEST(Callbacks, OfOneConnectorChangeAnother) {
    Host outer;
    Host inner;
    inner.arm("stop", [&] {
        EXPECT_EQ(told([&] { outer.connector->newContext(); }), refused); // this thread has it, two holds further out
        EXPECT_EQ(outer.connector->listServiceProviders().size(), 4u);
    });
    outer.arm("stop", [&] {
        inner.connector->removeServiceProvider("hooked");
        inner.connector->addServiceProvider("new", provider());
        EXPECT_NE(inner.connector->newContext(), nullptr);
    });
    outer.connector->stop();
    EXPECT_THAT(inner.connector->listServiceProviders(), ElementsAre("echo", "keep", "new", "throw"));
}

} // namespace
} // namespace connector::test
