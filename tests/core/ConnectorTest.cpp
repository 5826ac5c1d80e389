#include "support/Allocations.h"
#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

namespace connector::test {
namespace {

using Record = LogCapture::Record;
using testing::ElementsAre;

static_assert(std::is_convertible_v<std::string, ConnectorImpl2>);
static_assert(std::is_convertible_v<std::weak_ptr<Connector>, ContextImpl>);

class Connectors : public testing::Test {
protected:
    std::string sent(const std::string& address) { return outcome(send(*connector, address)); }
    std::set<std::string> names() { return connector->listServiceProviders(); }

    const std::shared_ptr<ConnectorImpl2> connector = std::make_shared<ConnectorImpl2>();
};

std::vector<int> calls(const std::shared_ptr<TestProvider>& provider) {
    return {provider->starts, provider->stops};
}

TEST_F(Connectors, HaveANameAndAnOwner) {
    EXPECT_EQ(connector->getName(), "default");
    EXPECT_EQ(ConnectorImpl2("switchboard").getName(), "switchboard");
    EXPECT_EQ(connector->getPtr(), connector);
}

TEST_F(Connectors, RefuseATakenKeyAndKeepTheFirstProvider) {
    const std::pair<const char*, const char*> cases[] = {{"a", "a"},   {"a", "?a"}, {"?opt", "opt"},
                                                         {"aB", "b!"}, {"", "?"},   {"\xFF\x80", "?\xFF\x80"}};
    for (const auto& [name, taken] : cases) {
        SCOPED_TRACE(std::string(name) + " and " + taken);
        const auto first = provider(), second = provider();
        const auto addTaken = [&, taken = taken](const auto& provider) {
            return told([&] { connector->addServiceProvider(taken, provider); });
        };
        const LogCapture log(0x308);
        connector->addServiceProvider(name, first);
        const std::string text = std::string("Service with name ") + taken + " already registered (or hash collision).";
        EXPECT_EQ(addTaken(second), "runtime_error: " + text);
        EXPECT_THAT(names(), ElementsAre(name));
        EXPECT_FALSE(second->running);
        EXPECT_EQ(second.use_count(), 1);
        connector->removeServiceProvider(taken); // every name of the key will do
        EXPECT_THAT(names(), ElementsAre());
        EXPECT_THAT(calls(first), ElementsAre(1, 1));
        EXPECT_EQ(first.use_count(), 1);
        connector->removeServiceProvider(taken);
        EXPECT_EQ(addTaken(nullptr), "invalid_argument: Service provider can't be empty.");
        const Record adding{0x8, std::string("Adding service provider: ") + taken};
        const Record removed{0x8, std::string("Removed service provider: ") + taken};
        EXPECT_THAT(log.records, ElementsAre(Record{0x8, std::string("Adding service provider: ") + name}, adding,
                                             Record{0x200, text}, removed, removed, adding));
    }
}

// The provider's own flag decides whether it is called, whatever was done to the connector before.
TEST_F(Connectors, CallAProviderOnlyWhenItsFlagChanges) {
    const auto p = provider();
    connector->addServiceProvider("a", p); // a new connector is started
    EXPECT_THAT(calls(p), ElementsAre(1, 0));
    connector->addServiceProvider("b", p);
    connector->start();
    EXPECT_THAT(calls(p), ElementsAre(1, 0));
    connector->stop();
    connector->stop();
    EXPECT_THAT(calls(p), ElementsAre(1, 1));
    EXPECT_EQ(sent("a/b"), "hello@b"); // a stopped provider still receives messages
    connector->start();
    EXPECT_THAT(calls(p), ElementsAre(2, 1));
    connector->removeServiceProvider("a");
    connector->removeServiceProvider("b");
    EXPECT_THAT(calls(p), ElementsAre(2, 2));

    connector->stop();
    connector->addServiceProvider("stopped already", p);
    EXPECT_THAT(calls(p), ElementsAre(2, 2));
    const auto running = provider();
    running->running = true;
    connector->addServiceProvider("running", running);
    EXPECT_THAT(calls(running), ElementsAre(0, 1));
    connector->start();
    auto other = std::make_shared<ConnectorImpl2>();
    other->addServiceProvider("p", p);
    other.reset(); // destruction stops no provider
    EXPECT_THAT(calls(p), ElementsAre(3, 2));
    EXPECT_TRUE(p->running);
}

TEST_F(Connectors, PassOnWhatAProviderThrowsAndStayUsable) {
    const auto p = provider();
    p->onStart = p->onStop = [] { throw std::runtime_error("not now"); };
    EXPECT_THROW(connector->addServiceProvider("p", p), std::runtime_error);
    EXPECT_TRUE(p->running);
    EXPECT_EQ(sent("p/x"), "hello@x");
    EXPECT_THROW(connector->removeServiceProvider("p"), std::runtime_error);
    EXPECT_FALSE(p->running);
    EXPECT_EQ(sent("p/x"), "hello@x"); // still registered
    EXPECT_THROW(connector->start(), std::runtime_error);
    EXPECT_THROW(connector->stop(), std::runtime_error);
    EXPECT_THROW(connector->start(), std::runtime_error); // and the connector is still stopped:
    const auto late = provider();
    connector->addServiceProvider("late", late);
    EXPECT_THAT(calls(late), ElementsAre(0, 0));
    p->onStop = nullptr;
    connector->removeServiceProvider("p");
    EXPECT_THAT(calls(p), ElementsAre(3, 3)); // it counted as started
    EXPECT_THAT(names(), ElementsAre("late"));
}

TEST_F(Connectors, RouteToTheFirstServiceThatTheAddressNames) {
    for (const char* name : {"a", "?opt", "aB", "\xC3\xA9"})
        connector->addServiceProvider(name, provider());
    connector->addServiceProvider("?throw", thrower(std::runtime_error("boom")));
    connector->addServiceProvider("int", thrower(7));
    connector->addServiceProvider("leaves", provider([this](auto&&...) -> Reply {
                                      connector->removeServiceProvider("leaves");
                                      throw std::invalid_argument("gone");
                                  }));
    const std::string none = "invalid_argument: No service specified. Address can't be empty.";
    const std::string thrown = "Propogating exception received from service ";
    const auto skipping = [](const std::string& name) {
        return Record{0x8, "Skipping optional service '" + name + "'"};
    };
    const auto notFound = [](const std::string& name, const std::string& rest) {
        return "Message not delivered: service '" + name + "' not found, remainder of address: " + rest;
    };
    const struct {
        const char* address;
        std::string outcome;
        std::vector<Record> logged = {};
    } cases[] = {
        {"a", "hello@"},
        {"a/b/c", "hello@b/c"},
        {"a/", "hello@"},
        {"?a/b", "hello@b"},
        {"opt/x", "hello@x"},
        {"?opt/x", "hello@x"},
        {"b!/x", "hello@x"}, // as good a name of 'aB' as its own
        {"\xC3\xA9/\xFF", "hello@\xFF"},
        {"?x/a", "hello@", {skipping("?x")}},
        {"?x/?/a/b", "hello@b", {skipping("?x"), skipping("?")}},
        {"??a/a", "hello@", {skipping("??a")}}, // two marks: not the same as '?a'
        {"?x", none, {skipping("?x")}},
        {"", none},
        {"z/b/c", "invalid_argument: " + notFound("z", "b/c"), {{0x200, notFound("z", "b/c")}}},
        {"/a", "invalid_argument: " + notFound("", "a"), {{0x200, notFound("", "a")}}},
        {"a?/b", "invalid_argument: " + notFound("a?", "b"), {{0x200, notFound("a?", "b")}}},
        {"throw", "runtime_error: boom", {{0x100, thrown + "'?throw': boom"}}},
        {"int", "not an exception", {{0x100, thrown + "'int'"}}},
        {"leaves", "invalid_argument: gone", {{0x8, "Removed service provider: leaves"}, {0x100, thrown + "'': gone"}}},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.address);
        const LogCapture log(0x308);
        EXPECT_EQ(sent(expected.address), expected.outcome);
        EXPECT_EQ(log.records, expected.logged);
    }
}

TEST_F(Connectors, LeaveAnUndeliveredMessageWithItsCaller) {
    LogCapture silence(0);
    for (const char* address : {"", "?x", "z/y"}) {
        MessagePtr sent = message("mine");
        auto context = connector->newContext();
        outcome(connector->handle(std::move(sent), Address(address), std::move(context)));
        EXPECT_EQ(text(sent), "mine"); // NOLINT(bugprone-use-after-move): what is promised of it
        EXPECT_TRUE(context);          // NOLINT(bugprone-use-after-move)
    }
}

TEST_F(Connectors, PassMessageContextAndFutureOnWithoutCopyOrAllocation) {
    std::shared_ptr<State> state;
    const Message* received = nullptr;
    std::shared_ptr<Context> carried;
    connector->addServiceProvider("late", provider([&](MessagePtr&& message, auto&&, auto&& context) {
                                      received = message.get();
                                      carried = std::move(context);
                                      state = std::make_shared<State>();
                                      return Reply(state);
                                  }));
    MessagePtr sent = message("x");
    const Message* const original = sent.get();
    const auto context = connector->newContext();
    Address address("late/op");
    auto given = context;
    const AllocationCount allocations;
    Reply reply = connector->handle(std::move(sent), std::move(address), std::move(given));
    EXPECT_EQ(allocations(), 1u); // the state
    EXPECT_EQ(received, original);
    EXPECT_EQ(carried, context);
    EXPECT_EQ(state.use_count(), 2); // here and in the one future
    state->setValue(message("answer"));
    EXPECT_EQ(text(reply.get()), "answer");
}

} // namespace
} // namespace connector::test
