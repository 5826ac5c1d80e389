#include "support/Allocations.h"
#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <functional>
#include <new>
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

    Host() {
        connector->addServiceProvider("keep",
                                      provider([this](MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) {
                                          kept = std::move(message);
                                          return makeReadyFuture(MessagePtr());
                                      }));
        connector->addServiceProvider("echo", provider([](MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) {
                                          return makeReadyFuture(std::move(message));
                                      }));
        connector->addServiceProvider(
            "throw", provider([](MessagePtr&&, Address&&, std::shared_ptr<Context>&&) -> Reply { throw 7; }));
        context->set("key", 1, ContextScope::Session);
    }

    void send(const char* address) {
        reply = connector->handle(std::move(message), Address(address), std::shared_ptr<Context>(context));
    }

    /// Both tables hold the same names, and each works.
    void checkRegistry() {
        const std::set<std::string> listed = connector->listServiceProviders();
        for (const std::string& name : {std::string("keep"), std::string("throw"), longName})
            EXPECT_EQ(outcome(test::send(*connector, name)).find("not found") == std::string::npos,
                      listed.count(name) == 1)
                << name;
        for (const std::string& name : listed)
            connector->removeServiceProvider(name);
        EXPECT_TRUE(connector->listServiceProviders().empty());
        for (const std::string& name : listed)
            connector->addServiceProvider(name, provider());
        EXPECT_EQ(connector->listServiceProviders(), listed);
    }

    /// Of the one message there is one, with its sender, with a provider or in a reply, or it died with one of these.
    void checkMessage() {
        MessagePtr replied;
        try {
            if (reply)
                replied = reply->get();
        } catch (...) { // a failed reply holds no message
        }
        EXPECT_EQ((message ? 1 : 0) + (kept ? 1 : 0) + (replied ? 1 : 0), alive.use_count() - 1);
    }
};

const struct {
    const char* name;
    std::function<void(Host&)> run;
} operations[] = {
    {"construct", [](Host&) { std::make_shared<ConnectorImpl2>(longName)->getName(); }},
    {"addServiceProvider", [](Host& host) { host.connector->addServiceProvider(longName, host.added); }},
    {"addServiceProvider, taken",
     [](Host& host) {
         try {
             host.connector->addServiceProvider("echo", host.added);
         } catch (const std::runtime_error&) { // as it should be
         }
     }},
    {"removeServiceProvider", [](Host& host) { host.connector->removeServiceProvider("echo"); }},
    {"listServiceProviders", [](Host& host) { host.connector->listServiceProviders(); }},
    {"start, stop", [](Host& host) { host.connector->stop(), host.connector->start(); }},
    {"handle, kept", [](Host& host) { host.send("keep"); }},
    {"handle, answered", [](Host& host) { host.send("?optional service/echo"); }},
    {"handle, thrown", [](Host& host) { host.send("throw"); }},
    {"handle, not delivered", [](Host& host) { host.send("a service that nobody has registered/rest"); }},
    {"handle, no address", [](Host& host) { host.send(""); }},
    {"handle, by a context",
     [](Host& host) { host.reply = host.context->handle(std::move(host.message), Address("echo")); }},
    {"handle, connector gone",
     [](Host& host) {
         host.reply = std::make_shared<ContextImpl>()->handle(std::move(host.message), Address("echo"));
     }},
    {"newContext", [](Host& host) { host.connector->newContext()->newSession()->newRequest()->newLocal(); }},
    {"newContext, the first",
     [](Host& host) {
         host.connector->setProcessContext(nullptr);
         host.connector->newContext();
     }},
    {"context, set", [](Host& host) { host.context->set(longName, host.value, ContextScope::Local); }},
    {"context, replace", [](Host& host) { host.context->set("key", host.value, ContextScope::Session); }},
    {"context, get", [](Host& host) { host.context->get("key"); }},
    {"context, erase", [](Host& host) { host.context->erase("key", ContextScope::Session); }},
    {"setEnabledSeverityMask", [](Host&) { fl::log::setEnabledSeverityMask(longName, 0x8); }},
};

TEST(MemoryFailure, LosesNothing) {
    for (const std::uint32_t mask : {0u, 0x308u})
        for (const auto& operation : operations)
            for (const bool forEver : {false, true}) {
                bool struck = true;
                for (std::size_t successes = 0; struck; ++successes) {
                    SCOPED_TRACE(std::string(operation.name) + ", allocation " + std::to_string(successes) +
                                 (forEver ? " and all later ones" : "") + (mask ? ", logging" : ""));
                    LogCapture log(mask);
                    Host host;
                    {
                        const AllocationFailure failure(successes, forEver);
                        try {
                            operation.run(host);
                        } catch (const std::bad_alloc&) { // says so, and that is all that may happen
                        }
                        struck = AllocationFailure::struck();
                    }
                    host.checkMessage();
                    EXPECT_EQ(host.added->starts == 1, host.connector->listServiceProviders().count(longName) == 1);
                    host.checkRegistry();
                    EXPECT_TRUE(host.connector->newContext());
                    host.context->set("afterwards", 1, ContextScope::Local);
                }
            }
}

} // namespace
} // namespace connector::test
