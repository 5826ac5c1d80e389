#include "support/Allocations.h"
#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>

namespace connector::test {
namespace {

using testing::ElementsAreArray;

class Routing : public testing::Test {
protected:
    const std::shared_ptr<ConnectorImpl2> connector = std::make_shared<ConnectorImpl2>();
};

TEST_F(Routing, TakesTheFirstServiceThatTheAddressNames) {
    connector->addServiceProvider("a", provider());
    connector->addServiceProvider("?opt", provider());
    connector->addServiceProvider("aB", provider());
    connector->addServiceProvider("\xC3\xA9", provider());

    const std::string none = "invalid_argument: No service specified. Address can't be empty.";
    const auto lost = [](const std::string& name, const std::string& rest) {
        return "Message not delivered: service '" + name + "' not found, remainder of address: " + rest;
    };
    const struct {
        const char* address;
        std::string outcome;
        std::vector<std::pair<std::uint32_t, std::string>> logged;
    } cases[] = {
        {"a", "hello@", {}},
        {"a/b/c", "hello@b/c", {}},
        {"a/", "hello@", {}},
        {"?a/b", "hello@b", {}},
        {"opt/x", "hello@x", {}},
        {"?opt/x", "hello@x", {}},
        {"b!/x", "hello@x", {}}, // as good a name of 'aB' as its own
        {"\xC3\xA9/\xFF", "hello@\xFF", {}},
        {"?x/a", "hello@", {{0x8, "Skipping optional service '?x'"}}},
        {"?x/?/a/b", "hello@b", {{0x8, "Skipping optional service '?x'"}, {0x8, "Skipping optional service '?'"}}},
        {"?x", none, {{0x8, "Skipping optional service '?x'"}}},
        {"", none, {}},
        {"z/b/c", "invalid_argument: " + lost("z", "b/c"), {{0x200, lost("z", "b/c")}}},
        {"/a", "invalid_argument: " + lost("", "a"), {{0x200, lost("", "a")}}},
        {"a?/b", "invalid_argument: " + lost("a?", "b"), {{0x200, lost("a?", "b")}}},
        {"??a/a", "hello@", {{0x8, "Skipping optional service '??a'"}}}, // two marks: not the same as '?a'
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.address);
        std::vector<LogCapture::Record> records;
        for (const auto& line : expected.logged)
            records.push_back({line.first, "connector::framework", line.second});
        LogCapture log(0x308);
        EXPECT_EQ(outcome(send(*connector, expected.address)), expected.outcome);
        EXPECT_THAT(log.records, ElementsAreArray(records));
    }
}

TEST_F(Routing, LeavesAnUndeliveredMessageWithItsSender) {
    for (const char* address : {"", "?x", "z/y"}) {
        MessagePtr sent = message("mine");
        auto context = connector->newContext();
        outcome(connector->handle(std::move(sent), Address(address), std::move(context)));
        EXPECT_EQ(text(sent), "mine"); // NOLINT(bugprone-use-after-move): what is promised of it
        EXPECT_TRUE(context);          // NOLINT(bugprone-use-after-move)
    }
}

TEST_F(Routing, PassesMessageContextAndFutureOnAsTheyAre) {
    const auto state = std::make_shared<detail::SharedFutureState<MessagePtr>>();
    const Message* received = nullptr;
    std::shared_ptr<Context> carried;
    connector->addServiceProvider("late",
                                  provider([&](MessagePtr&& message, Address&&, std::shared_ptr<Context>&& context) {
                                      received = message.get();
                                      carried = std::move(context);
                                      return Reply(state);
                                  }));
    MessagePtr sent = message("x");
    const Message* const original = sent.get();
    const auto context = connector->newContext();
    Reply reply = connector->handle(std::move(sent), Address("late"), std::shared_ptr<Context>(context));
    EXPECT_EQ(received, original);
    EXPECT_EQ(carried, context);
    EXPECT_EQ(state.use_count(), 2); // here and in the one future
    state->setValue(message("answer"));
    EXPECT_EQ(text(reply.get()), "answer");
}

TEST_F(Routing, DeliversWhileStopped) {
    connector->addServiceProvider("a", provider());
    connector->stop();
    EXPECT_EQ(outcome(send(*connector, "a/b")), "hello@b");
}

TEST_F(Routing, TurnsWhatAProviderThrowsIntoAFailedReply) {
    std::function<Reply()> body;
    connector->addServiceProvider(
        "?p", provider([&](MessagePtr&&, Address&&, std::shared_ptr<Context>&&) { return body(); }));
    const struct {
        const char* name;
        std::function<Reply()> body;
        std::string outcome, logged;
    } cases[] = {
        {"exception", []() -> Reply { throw std::runtime_error("boom"); }, "runtime_error: boom",
         "Propogating exception received from service '?p': boom"},
        {"not an exception", []() -> Reply { throw 7; }, "not an exception",
         "Propogating exception received from service '?p'"},
        {"removed meanwhile",
         [this]() -> Reply {
             connector->removeServiceProvider("p");
             throw std::invalid_argument("gone");
         },
         "invalid_argument: gone", "Propogating exception received from service '': gone"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        LogCapture log(0x100);
        body = expected.body;
        EXPECT_EQ(outcome(send(*connector, "p")), expected.outcome);
        ASSERT_EQ(log.records.size(), 1u);
        EXPECT_EQ(log.records[0], (LogCapture::Record{0x100, "connector::framework", expected.logged}));
    }
}

TEST_F(Routing, AllocatesNothingBeforeTheProviderIsEntered) {
    std::unique_ptr<AllocationCount> allocations;
    std::size_t atEntry = 99;
    connector->addServiceProvider("service", provider([&](MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) {
                                      atEntry = (*allocations)();
                                      return makeReadyFuture(std::move(message));
                                  }));
    MessagePtr sent = message("x");
    Address address("service/op");
    std::shared_ptr<Context> context;
    allocations = std::make_unique<AllocationCount>();
    Reply reply = connector->handle(std::move(sent), std::move(address), std::move(context));
    EXPECT_EQ(atEntry, 0u);
    EXPECT_EQ((*allocations)(), 2u); // the future's state and its value's cell
    sent = reply.get();
    EXPECT_EQ((*allocations)(), 2u);
}

TEST_F(Routing, LetsAProviderUseItsOwnConnector) {
    connector->addServiceProvider("inner", provider());
    connector->addServiceProvider(
        "outer", provider([this](MessagePtr&& message, Address&& address, std::shared_ptr<Context>&&) {
            connector->removeServiceProvider("outer"); // while it runs
            connector->addServiceProvider("next", provider());
            return connector->handle(std::move(message), std::move(address), connector->newContext());
        }));
    EXPECT_EQ(outcome(send(*connector, "outer/inner/x")), "hello@x");
    EXPECT_THAT(connector->listServiceProviders(), testing::ElementsAre("inner", "next"));
}

// Messages go out on two threads while their provider comes and goes on a third and the names are listed on a fourth.
// Each is answered exactly once: by the provider, or as not delivered.
TEST_F(Routing, AnswersEveryMessageOnceWhileProvidersComeAndGo) {
    const int perRound = 100;
    const auto p = provider();
    std::atomic<int> delivered{0};
    std::atomic<int> refused{0};
    std::atomic<std::size_t> listed{0};
    LogCapture silence(0);
    const auto route = [&](int) {
        for (int i = 0; i < perRound; ++i) {
            const std::string got = outcome(send(*connector, "?x/p/y", "m"));
            if (got == "m@y")
                ++delivered;
            else if (got == "invalid_argument: Message not delivered: service 'p' not found, remainder of address: y")
                ++refused;
        }
    };
    race(rounds(30), {route, route,
                      [&](int) {
                          for (int i = 0; i < perRound; ++i) {
                              connector->addServiceProvider("p", p);
                              connector->removeServiceProvider("p");
                          }
                      },
                      [&](int) {
                          for (int i = 0; i < perRound; ++i) {
                              listed += connector->listServiceProviders().size();
                              connector->stop();
                              connector->start();
                          }
                      }});
    EXPECT_EQ(delivered + refused, 2 * perRound * rounds(30));
    EXPECT_EQ(p->handles, delivered);
    EXPECT_GE(p->starts, p->stops);
    EXPECT_LE(p->starts, p->stops + 1);
}

} // namespace
} // namespace connector::test
