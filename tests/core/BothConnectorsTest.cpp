// The promises that both connectors keep.

#include "Worker.h"
#include "support/Futures.h"
#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>

#include <gmock/gmock.h>

namespace connector::test {
namespace {

using boost::any_cast;
using testing::ElementsAre;

template <class Kind>
class BothConnectors : public testing::Test {
protected:
    static constexpr bool overTheExchange = std::is_same_v<Kind, ConnectorImpl>;

    static std::string noService(const std::string& name) {
        return overTheExchange ? "runtime_error: No service named: " + name
                               : "invalid_argument: Message not delivered: service '" + name +
                                     "' not found, remainder of address: ";
    }
    std::string sent(const std::string& address) {
        return told([&] {
            auto message = std::make_unique<TextMessage>("hello", alive);
            return text(connector->handle(std::move(message), Address(address), nullptr).get());
        });
    }

    const std::shared_ptr<int> alive = std::make_shared<int>();
    const std::shared_ptr<Kind> connector = std::make_shared<Kind>();
};
using Kinds = testing::Types<ConnectorImpl2, ConnectorImpl>;
struct KindNames {
    template <class Kind>
    static std::string GetName(int) {
        return std::is_same_v<Kind, ConnectorImpl> ? "OverTheExchange" : "InProcess";
    }
};
TYPED_TEST_SUITE(BothConnectors, Kinds, KindNames);

TYPED_TEST(BothConnectors, ShareOneProcessContextUntilItIsReplaced) {
    const auto& connector = this->connector;
    const auto early = connector->newContext();
    early->set("key", 1, ContextScope::Process);
    early->set("session", 1, ContextScope::SharedSession);
    EXPECT_TRUE(connector->newContext()->has("key"));
    EXPECT_FALSE(connector->newContext()->has("session"));
    const auto own = std::make_shared<ContextImpl>();
    const auto previous = connector->setProcessContext(own);
    EXPECT_TRUE(previous->has("key"));
    EXPECT_FALSE(connector->newContext()->has("key"));
    EXPECT_EQ(connector->setProcessContext(nullptr), own);
    connector->newContext()->set("key", 2, ContextScope::Process);
    EXPECT_EQ(any_cast<int>(connector->newContext()->get("key")), 2);
    EXPECT_EQ(any_cast<int>(early->get("key")), 1);
}

TYPED_TEST(BothConnectors, MakeNoProcessContextUnlessTheyAreOwned) {
    TypeParam connector;
    EXPECT_THROW(connector.getPtr(), std::bad_weak_ptr);
    EXPECT_THROW(connector.newContext(), std::bad_weak_ptr);
    EXPECT_FALSE(connector.setProcessContext(std::make_shared<ContextImpl>())); // none was left, nor the lock held
    EXPECT_TRUE(connector.newContext());
}

TYPED_TEST(BothConnectors, MayBeUsedByAProviderThatTheyCallOrDestroy) {
    std::vector<std::string> events;
    const auto destroyed = [&](const std::string& name) {
        return atEnd([&, name] { events.push_back(name + " destroyed: " + this->sent(name)); });
    };
    this->connector->addServiceProvider(
        "outer", provider([&, held = destroyed("outer")](MessagePtr&& message, Address&& address, auto&& context) {
            EXPECT_EQ(address.toString(), "inner/x");
            EXPECT_FALSE(context);
            this->connector->removeServiceProvider("outer"); // while it runs
            events.push_back(this->sent("outer"));
            this->connector->addServiceProvider(
                "inner",
                provider([held = destroyed("inner")](auto&&, auto&& rest, auto&&) { return ready(rest.toString()); }));
            return this->connector->handle(std::move(message), std::move(address), this->connector->newContext());
        }));
    EXPECT_EQ(this->sent("outer/inner/x"), "x");
    this->connector->removeServiceProvider("inner");
    const std::string outer = this->noService("outer");
    EXPECT_THAT(events,
                ElementsAre(outer, "outer destroyed: " + outer, "inner destroyed: " + this->noService("inner")));
}

template <class Kind>
class RequestRace : public BothConnectors<Kind> {};
TYPED_TEST_SUITE(RequestRace, Kinds, KindNames);

// Every way to answer and not to answer, while all services but the first come and go, and the connector stops and
// starts: each request ends as its service ends it, or fails because there is none, and no message is left.
TYPED_TEST(RequestRace, EndsAsItsServiceEndsItOrFindsNone) {
    Worker<> worker;
    const struct {
        const char *name, *outcome;
        TestProvider::Body body;
    } services[] = {
        {"stays", "hello", [](MessagePtr&& message, auto&&...) { return makeReadyFuture(std::move(message)); }},
        {"never takes its message", "kept", [](auto&&...) { return ready("kept"); }},
        {"throws", "not an exception", [](auto&&...) -> Reply { throw 7; }},
        {"takes and throws", "std::bad_alloc",
         [](MessagePtr&& message, auto&&...) -> Reply {
             const MessagePtr taken = std::move(message);
             throw std::bad_alloc();
         }},
        {"replies later", "hello",
         [&worker](MessagePtr&& message, auto&&...) {
             const auto state = std::make_shared<State>();
             worker.post(std::packaged_task<void()>(
                 [state, taken = std::move(message)]() mutable { state->setValue(std::move(taken)); }));
             return Reply(state);
         }},
    };
    std::atomic<int> delivered{0}, handled{0}, unbalanced{0};
    const auto add = [&](const auto& service) {
        const auto count = [&](TestProvider* ended) {
            handled += ended->handles;
            unbalanced += ended->starts != ended->stops + (ended->running ? 1 : 0);
            delete ended; // NOLINT(cppcoreguidelines-owning-memory)
        };
        this->connector->addServiceProvider(service.name,
                                            std::shared_ptr<TestProvider>(new TestProvider(service.body), count));
    };
    const auto route = [&](int) {
        for (std::size_t i = 0; i < 100; ++i) {
            const auto& service = services[i % std::size(services)];
            const std::string got = this->sent(service.name);
            if (&service == services || got != this->noService(service.name)) {
                EXPECT_THAT(got, testing::EndsWith(service.outcome)) << service.name;
                ++delivered;
            }
        }
    };
    const auto change = [&](int) {
        for (std::size_t i = 0; i < 100; ++i) {
            told([&] { add(services[1 + i % 4]); }); // refused if the name is taken
            this->connector->removeServiceProvider(services[1 + (i + 2) % 4].name);
        }
    };
    const auto toggle = [&](int) {
        for (int i = 0; i < 20; ++i) {
            told([&] { this->connector->listServiceProviders(); });
            this->connector->stop();
            this->connector->start();
        }
    };
    const LogCapture silence(0);
    add(services[0]);
    race(rounds(30), {change, change, route, route, toggle, toggle});
    for (const auto& service : services)
        this->connector->removeServiceProvider(service.name);
    EXPECT_EQ(delivered, handled);
    EXPECT_EQ(unbalanced, 0);
    const auto late = provider();
    this->connector->addServiceProvider("late", late); // to a connector that was started last
    EXPECT_TRUE(late->running);
    this->connector->removeServiceProvider("late");
    EXPECT_EQ(this->alive.use_count(), 1);
}

} // namespace
} // namespace connector::test
