#include "support/Allocations.h"
#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <numeric>
#include <optional>

namespace connector::test {
namespace {

const std::string longName = "a name that fits no small string";

/// Everything that the operations below work on, made anew for each try.
struct Host {
    const std::shared_ptr<ConnectorImpl2> connector = std::make_shared<ConnectorImpl2>();
    const std::shared_ptr<TestProvider> added = provider();
    const std::shared_ptr<int> alive = std::make_shared<int>(0); // counts messages
    MessagePtr message = std::make_unique<TextMessage>("a text that fits no small string either", alive);
    MessagePtr kept; // what a provider received
    std::shared_ptr<Context> context = connector->newContext();
    std::optional<Reply> reply;
    boost::any value = longName;
    Address address{longName + "/rest"};
    const std::shared_ptr<detail::SharedFutureState<MessagePtr>> state =
        std::make_shared<detail::SharedFutureState<MessagePtr>>();

    Host() {
        connector->addServiceProvider("keep", provider([this](MessagePtr&& message, auto&&...) {
                                          kept = std::move(message);
                                          return makeReadyFuture(MessagePtr());
                                      }));
        connector->addServiceProvider("echo", echo());
        connector->addServiceProvider("throw", thrower(7, &kept));
        context->set("key", 1, ContextScope::Session);
    }

    void send(const char* address) {
        reply = connector->handle(std::move(message), Address(address), std::shared_ptr<Context>(context));
    }

    /// The names that are registered, and "mine" if the message was left alone.
    std::string left() const {
        std::string names;
        for (const std::string& name : connector->listServiceProviders())
            names += name + " ";
        return names + (message ? "mine" : "");
    }

    /// Whatever happened, nothing is half done: the tables agree, no lock is held, each thing has one owner.
    void check() {
        MessagePtr replied;
        told([&] { replied = reply ? reply->get() : nullptr; });
        EXPECT_EQ((message ? 1 : 0) + (kept ? 1 : 0) + (replied ? 1 : 0), alive.use_count() - 1);
        const std::set<std::string> listed = connector->listServiceProviders();
        EXPECT_EQ(added->starts == 1, listed.count(longName) == 1);
        for (const std::string& name : {std::string("keep"), std::string("throw"), longName})
            EXPECT_EQ(outcome(test::send(*connector, name)).find("not found") == std::string::npos,
                      listed.count(name) == 1);
        for (const std::string& name : listed)
            connector->removeServiceProvider(name);
        EXPECT_TRUE(connector->listServiceProviders().empty());
        for (const std::string& name : listed)
            connector->addServiceProvider(name, provider());
        EXPECT_EQ(connector->listServiceProviders(), listed);
        EXPECT_TRUE(connector->newContext());
        context->set("afterwards", 1, ContextScope::Local);
        EXPECT_EQ(context->has(longName), context->has(longName, ContextScope::Local));
        EXPECT_THAT(address.toString(), testing::AnyOf(longName + "/rest", "rest"));
        EXPECT_EQ(state->status == detail::FutureStatus::Pending, state.use_count() == 1); // or `reply` is its future
    }
};

const struct {
    const char* name;
    std::function<void(Host&)> run;
    const char* left = nullptr; // if it logs: what is left when the sink throws
} operations[] = {
    {"construct", [](Host&) { std::make_shared<ConnectorImpl2>(longName)->getName(); }},
    {"add", [](Host& host) { host.connector->addServiceProvider(longName, host.added); }, "echo keep throw mine"},
    {"add, taken", [](Host& host) { host.connector->addServiceProvider("echo", host.added); }, "echo keep throw mine"},
    {"remove", [](Host& host) { host.connector->removeServiceProvider("echo"); }, "keep throw mine"},
    {"list", [](Host& host) { host.connector->listServiceProviders(); }},
    {"start, stop", [](Host& host) { host.connector->stop(), host.connector->start(); }},
    {"handle, kept", [](Host& host) { host.send("keep"); }},
    {"handle, answered", [](Host& host) { host.send("?optional service/echo"); }, "echo keep throw mine"},
    {"handle, thrown", [](Host& host) { host.send("throw"); }, "echo keep throw "},
    {"handle, not delivered", [](Host& host) { host.send("a service that nobody has registered/rest"); },
     "echo keep throw mine"},
    {"handle, no address", [](Host& host) { host.send(""); }},
    {"handle, by a context",
     [](Host& host) { host.reply = host.context->handle(std::move(host.message), Address("echo")); }},
    {"handle, connector gone",
     [](Host& host) {
         host.reply = std::make_shared<ContextImpl>()->handle(std::move(host.message), Address("echo"));
     }},
    {"newContext", [](Host& host) { host.connector->newContext()->newSession()->newRequest()->newLocal(); }},
    {"newContext, the first",
     [](Host& host) { host.connector->setProcessContext(nullptr), host.connector->newContext(); }},
    {"context, set", [](Host& host) { host.context->set(longName, host.value, ContextScope::Local); }},
    {"context, replace", [](Host& host) { host.context->set("key", host.value, ContextScope::Session); }},
    {"context, get", [](Host& host) { host.context->get("key"); }},
    {"context, erase", [](Host& host) { host.context->erase("key", ContextScope::Session); }},
    {"setEnabledSeverityMask", [](Host&) { fl::log::setEnabledSeverityMask(longName, 0x8); }},
    {"address, copy", [](Host& host) { host.address = Address(host.address); }},
    {"address, assign",
     [](Host& host) {
         Address target("x/y");
         try {
             target = host.address;
         } catch (...) {
             EXPECT_EQ(target.toString(), "x/y");
             throw;
         }
     }},
    {"address, pop",
     [](Host& host) {
         if (host.address.toString() != "rest")
             host.address.pop();
     }},
    {"setValue", [](Host& host) { host.state->setValue(std::move(host.message)), host.reply.emplace(host.state); }},
    {"setException", [](Host& host) { host.state->setException(nullptr), host.reply.emplace(host.state); }},
};

TEST(Fault, OfMemoryLosesNothing) {
    for (const std::uint32_t mask : {0u, 0x308u})
        for (const auto& operation : operations)
            withEachAllocationFailing([&](const auto& attempt) {
                SCOPED_TRACE(std::string(operation.name) + (mask ? ", logging" : ""));
                const LogCapture log(mask);
                Host host;
                attempt([&] { operation.run(host); });
                host.check();
            });
}

// A sink that throws ends the operation that logs, at the line that it logs; what was done by then stays done.
TEST(Fault, OfASinkEndsTheOperationThatLogsAndNothingElse) {
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.name);
        Host host;
        bool fails = operation.left;
        const LogCapture log(0x308, [&](const LogCapture::Record&) {
            if (std::exchange(fails, false))
                throw std::domain_error("disk full");
        });
        EXPECT_EQ(told([&] { operation.run(host); }), operation.left ? "domain_error: disk full" : "done");
        EXPECT_EQ(operation.left ? host.left() : "", operation.left ? operation.left : "");
        host.check();
    }
}

} // namespace
} // namespace connector::test
