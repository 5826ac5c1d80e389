#include "support/Allocations.h"
#include "support/Futures.h"
#include "support/Messages.h"

#include <connector/exchange/ConnectorImpl.h>
#include <connector/exchange/internal/ErrorMessage.h>
#include <connector/exchange/internal/WrapperQueue.h>
#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/Envelope.h>

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>

#include <iomanip>
#include <sstream>

namespace connector::test {

namespace exchange = foundation::msg_svc::exchange;
using ExchangeReply = boost::shared_ptr<const exchange::Reply>;
using testing::ElementsAre;

/// An exception that no library knows.
struct Own : std::runtime_error {
    using std::runtime_error::runtime_error;
};
/// Its undeliverable reply is what `body` gives.
struct ForeignMessage : exchange::Message {
    using Body = std::function<ExchangeReply(const exchange::Envelope&)>;
    explicit ForeignMessage(Body body = {}) : body(std::move(body)) {}
    ExchangeReply createUndeliverableReply(const exchange::Envelope& envelope) const override {
        return body ? body(envelope) : Message::createUndeliverableReply(envelope);
    }
    using Message::protectedEquals;
    const Body body;
};

namespace {

/// What becomes of a request that is destroyed without a reply.
const std::string unanswered = "boost::exception_detail::clone_impl<boost::broken_promise>: The associated promise has "
                               "been destructed prior to the associated state becoming ready.";

struct ForeignReply : exchange::Reply {
    using Reply::protectedEquals;
};

// The queue answers each slot of the exchange's interface itself.
static_assert(std::is_same_v<decltype(&WrapperQueue::queueRemoved), void (WrapperQueue::*)()>);
static_assert(std::is_same_v<decltype(&WrapperQueue::deliver), void (WrapperQueue::*)(const exchange::Envelope*)>);

struct TestQueue : exchange::MessageQueue {
    using Body = std::function<void(const exchange::Envelope&)>;
    explicit TestQueue(Body body, const boost::shared_ptr<exchange::DefaultExchange>& exchange = {})
        : MessageQueue(exchange), body(std::move(body)) {}
    void queueRemoved() override { onRemoval(); }
    void processEnvelope(const exchange::Envelope* envelope) override { body(*envelope); }
    const Body body;
    std::function<void()> onRemoval = [] {};
};

ExchangeReply reply(const std::string& text) {
    return boost::make_shared<ErrorMessage>(text);
}

void sendReply(const exchange::Envelope& envelope, const ExchangeReply& reply) {
    exchange::MessageQueue::sendReply(exchange::Routing(envelope.getRouting(), {}), reply);
}

std::string outcome(boost::unique_future<ExchangeReply> future) {
    return told([&] {
        const ExchangeReply reply = future.get();
        return reply ? dynamic_cast<const ErrorMessage&>(*reply).getText() : "(empty)";
    });
}

/// Removes its names from the process's exchange.
class ExchangeTest : public testing::Test {
protected:
    ~ExchangeTest() override {
        for (const std::string& name : names)
            api->removeQueue(name);
    }
    std::string addQueue(const std::string& name, const boost::shared_ptr<exchange::MessageQueue>& queue) {
        return told([&] { api->addQueue(names.emplace_back(name), queue); });
    }
    std::string add(const std::string& name, const std::shared_ptr<ServiceProvider>& provider) {
        return told([&] { connector->addServiceProvider(names.emplace_back(name), provider); });
    }
    auto submit(const boost::shared_ptr<const exchange::Message>& message) {
        return api->submitWithReply(message, exchange::Address("any", "a"));
    }
    /// What the future of the reply gives, or "threw" and what handle() throws.
    std::string sent(const std::string& address, MessagePtr&& message = test::message("hello")) {
        std::string got = "threw ";
        const std::string thrown =
            told([&] { got = test::outcome(connector->handle(std::move(message), Address(address), nullptr)); });
        return thrown == "done" ? got : got + thrown;
    }
    MessagePtr counted(const std::string& text) const { return std::make_unique<TextMessage>(text, alive); }
    long living() const { return alive.use_count() - 1; }

    const std::shared_ptr<int> alive = std::make_shared<int>();
    const boost::shared_ptr<exchange::ExchangeApi> api = exchange::ExchangeApi::instance();
    const std::shared_ptr<ConnectorImpl> connector = std::make_shared<ConnectorImpl>();
    std::vector<std::string> names;
};

template <class T>
std::string shown() {
    const T one, other;
    std::ostringstream text;
    text << std::left << std::setfill('.') << "x";
    one.toString(text, 3);
    return one.protectedEquals(one) && !one.protectedEquals(other) ? text.str() : "not equal to itself alone";
}

TEST_F(ExchangeTest, NamesWhatItCarries) {
    EXPECT_EQ(shown<ForeignMessage>(), "x   connector::test::ForeignMessage");
    EXPECT_EQ(shown<ForeignReply>(), "x   connector::test::(anonymous namespace)::ForeignReply");
    EXPECT_EQ(api->getExchangeName(), "default");
    EXPECT_EQ(exchange::DefaultExchange("mine").getExchangeName(), "mine");
    EXPECT_EQ(exchange::ExchangeApi::defaultInstance(), api);
    const auto message = boost::make_shared<ForeignMessage>();
    addQueue("a", boost::make_shared<TestQueue>([&](auto& envelope) {
                 EXPECT_EQ(envelope.getMessage(), message);
                 sendReply(envelope, reply(envelope.getAddress().getExchangeName()));
             }));
    EXPECT_EQ(outcome(submit(message)), "any");
}

// Queues that are dropped with their exchange still find it, as does what they register meanwhile.
TEST_F(ExchangeTest, DropsItsQueuesAsItIsDestroyed) {
    std::vector<std::string> events;
    auto own = boost::make_shared<exchange::DefaultExchange>("own");
    exchange::DefaultExchange* const raw = own.get();
    const auto add = [&](const std::string& name, const std::function<void()>& onDestruction) {
        const auto queue = boost::make_shared<TestQueue>([held = atEnd(onDestruction)](auto&) {}, own);
        EXPECT_EQ(queue->exchange(), own);
        queue->onRemoval = [&events, raw, name] {
            raw->removeQueue("nobody"); // takes the lock
            throw std::runtime_error(events.emplace_back(name + " removed"));
        };
        raw->addQueue(name, queue);
    };
    add("first", [&] {
        events.push_back(outcome(raw->submitWithReply(nullptr, exchange::Address("own", "first"))));
        add("second", [&] { events.emplace_back("second destroyed"); });
    });
    own.reset();
    EXPECT_THAT(events, ElementsAre("first removed", unanswered, "second removed", "second destroyed"));
}

TEST_F(ExchangeTest, AnswersForTheQueueThatIsNotThere) {
    const auto undeliverable = [&](const ForeignMessage::Body& body) {
        return outcome(submit(boost::make_shared<ForeignMessage>(body)));
    };
    EXPECT_EQ(undeliverable([](auto& envelope) { return reply(envelope.getAddress().getQueueName()); }), "a");
    EXPECT_EQ(undeliverable([](auto&) -> ExchangeReply { throw Own("boom"); }), "connector::test::Own: boom");
    EXPECT_EQ(undeliverable([](auto&) -> ExchangeReply { throw 7; }), "not an exception");
    EXPECT_EQ(outcome(submit(boost::make_shared<ForeignMessage>())), "(empty)");
    EXPECT_EQ(outcome(submit(nullptr)), unanswered);
}

TEST_F(ExchangeTest, OwnsAQueueUntilRemovalAndTakesItsRepliesAfterwards) {
    std::vector<exchange::Routing> kept;
    const auto queue = boost::make_shared<TestQueue>([&](auto& envelope) { kept.push_back(envelope.getRouting()); });
    int removals = 0;
    queue->onRemoval = [&] {
        ++removals;
        api->removeQueue("b"); // takes the lock
    };
    EXPECT_EQ(addQueue("a", queue), "done");
    EXPECT_EQ(addQueue("a", queue), "runtime_error: Queue 'a' already registered.");
    EXPECT_EQ(addQueue("b", nullptr), "invalid_argument: Queue can't be empty.");
    EXPECT_EQ(queue.use_count(), 2);
    auto answered = submit(boost::make_shared<ForeignMessage>()), dropped = submit(nullptr);
    EXPECT_EQ(removals, 0);
    api->removeQueue("a");
    api->removeQueue("a");
    EXPECT_EQ(removals, 1);
    EXPECT_EQ(queue.use_count(), 1);

    EXPECT_FALSE(answered.is_ready() || dropped.is_ready());
    std::thread producer([&] {
        exchange::MessageQueue::sendReply(kept.front(), reply("late"));
        kept.clear();
    });
    EXPECT_EQ(outcome(std::move(answered)), "late");
    EXPECT_EQ(outcome(std::move(dropped)), unanswered);
    producer.join();
}

TEST_F(ExchangeTest, AnswersEachMessageOnce) {
    const auto served = [&](auto body) { return [&, body] { add("a", provider(body)); }; };
    const auto queued = [&](auto body) { return [&, body] { addQueue("a", boost::make_shared<TestQueue>(body)); }; };
    const auto sending = [&](const ExchangeReply& reply) {
        return queued([reply](auto& envelope) { sendReply(envelope, reply); });
    };
    const auto nobody = [] {};
    const auto replyTwice = [](auto& envelope) {
        sendReply(envelope, reply("first"));
        EXPECT_NO_THROW(sendReply(envelope, reply("second")));
        throw 7;
    };
    const struct {
        const char* name;
        std::function<void()> arrange;
        std::string expected;
        const char* address = "a";
        bool staysWithTheCaller = false;
    } cases[] = {
        {"provider replies", served([&](auto&&...) { return makeReadyFuture(counted("yes")); }), "yes"},
        {"provider replies nothing", served([](auto&&...) { return makeReadyFuture(MessagePtr()); }), "(no message)"},
        {"provider returns the message", [&] { add("a", echo()); }, "hello"},
        {"provider throws", [&] { add("a", thrower(Own("boom"))); }, "runtime_error: boom"},
        {"provider throws a number", [&] { add("a", thrower(7)); }, "threw not an exception"},
        {"future fails", served([](auto&&...) { return makeExceptionalFuture<MessagePtr>(Own("x")); }),
         "runtime_error: x"},
        {"queue sends an unknown reply", sending(boost::make_shared<ForeignReply>()), "runtime_error: Unknown error!"},
        {"queue sends an empty reply", sending(nullptr), "runtime_error: Unknown error!"},
        {"queue replies twice and throws", queued(replyTwice), "runtime_error: first"},
        {"queue throws", queued([](auto&) { throw Own("boom"); }), "threw connector::test::Own: boom"},
        {"queue drops the request", queued([](auto&) {}), "threw " + unanswered},
        {"no queue has the name", nobody, "runtime_error: No service named: a", "a/b"},
        {"no service is optional", nobody, "runtime_error: No service named: ?a", "?a"},
        {"address is empty", nobody, "invalid_argument: Address can't be empty.", "", true},
        {"first segment is empty", nobody, "invalid_argument: Address can't be empty.", "/a", true},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        expected.arrange();
        MessagePtr message = counted("hello");
        EXPECT_EQ(sent(expected.address, std::move(message)), expected.expected);
        EXPECT_EQ(message != nullptr, expected.staysWithTheCaller); // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(living(), expected.staysWithTheCaller ? 1 : 0);
        connector->removeServiceProvider("a");
    }
}

TEST_F(ExchangeTest, GivesTheProviderTheCallersObjects) {
    // The provider leaves the message with the request, and destroying it resolves the reply: a queue that waited for
    // the reply first would wait for ever.
    const auto state = std::make_shared<State>();
    MessagePtr resolver = std::make_unique<TextMessage>(
        "", std::static_pointer_cast<int>(atEnd([state] { state->setValue(message("done")); })));
    const std::shared_ptr<Context> context = connector->newContext();
    add("a", provider([&](auto&&, Address&& address, auto&& passed) {
            EXPECT_EQ(address.toString(), "b/c");
            EXPECT_EQ(passed, context);
            EXPECT_EQ(context.use_count(), 2);
            return Reply(state);
        }));
    EXPECT_EQ(test::outcome(context->handle(std::move(resolver), Address("a/b/c"))), "done");
}

TEST_F(ExchangeTest, StartsAndStopsProvidersOnlyAsTheyAreAdded) {
    const auto early = provider(), late = provider(), failing = provider();
    failing->onStart = failing->onStop = [] { throw Own("boom"); };
    EXPECT_EQ(add("early", early), "done");
    EXPECT_EQ(add("b", nullptr), "invalid_argument: Service provider can't be empty.");
    EXPECT_EQ(add("early", late), "runtime_error: Queue 'early' already registered.");
    EXPECT_EQ(add("", late), "invalid_argument: Queue name can't be empty.");
    EXPECT_EQ(add("failing", failing), "connector::test::Own: boom");
    EXPECT_TRUE(failing->running);

    connector->stop();
    EXPECT_EQ(add("late", late), "done");
    EXPECT_EQ(add("failing", failing), "connector::test::Own: boom");
    EXPECT_FALSE(failing->running);
    EXPECT_EQ(sent("failing"), "runtime_error: No service named: failing");
    connector->start();
    connector->stop();
    // The exchange is shared, and what is on it outlives the connector that put it there.
    std::make_shared<ConnectorImpl>()->addServiceProvider(names.emplace_back("later"), late);
    EXPECT_EQ(sent("later/rest"), "hello@rest");
    connector->removeServiceProvider("late");
    connector->removeServiceProvider("later");
    EXPECT_EQ(late.use_count(), 1);
    EXPECT_THAT((std::vector<int>{early->starts, early->stops, late->starts, late->stops}), ElementsAre(1, 0, 2, 1));
    EXPECT_EQ(sent("early"), "hello@");
}

TEST_F(ExchangeTest, RefusesForeignMessages) {
    const auto never = provider();
    const std::string expected = "foundation::msg_svc::exchange::UnexpectedMessage: Unexpected message: expected "
                                 "connector::WrapperMessage, received ";
    add("a", never);
    EXPECT_EQ(outcome(submit(boost::make_shared<ForeignMessage>())), expected + "connector::test::ForeignMessage.");
    EXPECT_EQ(outcome(submit(nullptr)), expected + "none.");
    EXPECT_EQ(told([&] { WrapperQueue(never, {}).processEnvelope(nullptr); }), expected + "none.");
    EXPECT_EQ(never->handles, 0);
    EXPECT_EQ(told([&] { connector->listServiceProviders(); }),
              "runtime_error: Listing service providers isn't supported by this implementation.");
}

// Whichever allocation fails, nothing has two owners or none, and the next try succeeds.
TEST_F(ExchangeTest, LosesNothingWhenMemoryRunsOut) {
    const std::string& name = names.emplace_back("a service whose name doesn't fit a small string");
    std::set<std::string> outcomes;
    const auto round = [&](const auto& attempt) {
        const auto done = provider([&](auto&&...) { return makeReadyFuture(counted("done")); });
        const bool added = attempt([&] { connector->addServiceProvider(name, done); }) == "done";
        EXPECT_EQ(done.use_count(), added ? 2 : 1);
        if (!added)
            connector->addServiceProvider(name, done);
        attempt([&] {
            exchange::DefaultExchange own("own");
            std::shared_ptr<void> held = atEnd([&own] { own.removeQueue("nobody"); }); // takes the lock
            own.addQueue(name, boost::make_shared<TestQueue>([held = std::move(held)](auto&) {}));
        });
        MessagePtr message = counted("hello");
        std::string got = "bad_alloc";
        attempt([&] { got = sent(name + "/rest", std::move(message)); });
        outcomes.insert(got);
        message.reset();
        EXPECT_EQ(living(), 0);
        EXPECT_EQ(sent(name), "done");
        connector->removeServiceProvider(name);
    };
    withEachAllocationFailing(round);
    EXPECT_THAT(outcomes, ElementsAre("bad_alloc", "done", "runtime_error: std::bad_alloc", // the provider's reply
                                      "threw bad_alloc: std::bad_alloc"));
}

} // namespace
} // namespace connector::test
