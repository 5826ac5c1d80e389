#include "support/Allocations.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/exchange/ConnectorImpl.h>
#include <connector/exchange/internal/ErrorMessage.h>
#include <connector/exchange/internal/WrapperQueue.h>
#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/Envelope.h>
#include <foundation/msg_svc/exchange/UnexpectedMessage.h>

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>

#include <iomanip>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace connector::test {

namespace exchange = foundation::msg_svc::exchange;
struct ForeignMessage : exchange::Message {
    using Message::protectedEquals;
};

namespace {

using State = detail::SharedFutureState<MessagePtr>;
using ExchangeReply = boost::shared_ptr<const exchange::Reply>;

/// An exception that no library knows.
struct Own : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct ForeignReply : exchange::Reply {
    using Reply::protectedEquals;
};

// The queue answers each slot of the exchange's interface itself.
static_assert(std::is_same_v<decltype(&WrapperQueue::queueRemoved), void (WrapperQueue::*)()>);
static_assert(std::is_same_v<decltype(&WrapperQueue::deliver), void (WrapperQueue::*)(const exchange::Envelope*)>);

struct Undeliverable : exchange::Message {
    explicit Undeliverable(std::function<ExchangeReply(const exchange::Envelope&)> body) : body(std::move(body)) {}
    ExchangeReply createUndeliverableReply(const exchange::Envelope& envelope) const override { return body(envelope); }
    const std::function<ExchangeReply(const exchange::Envelope&)> body;
};

struct TestQueue : exchange::MessageQueue {
    using Body = std::function<void(const exchange::Envelope&)>;
    explicit TestQueue(Body body, const boost::shared_ptr<exchange::DefaultExchange>& exchange = {})
        : MessageQueue(exchange), body(std::move(body)) {}
    void queueRemoved() override { onRemoval(); }
    void processEnvelope(const exchange::Envelope* envelope) override { body(*envelope); }
    const Body body;
    std::function<void()> onRemoval = [] {};
};

/// The text that `operation` returns, or the kind and text of what it throws.
template <class Operation>
std::string told(Operation operation) {
    try {
        return operation();
    } catch (const Own& error) {
        return std::string("threw Own: ") + error.what();
    } catch (const boost::broken_promise&) {
        return "threw broken_promise";
    } catch (const std::invalid_argument& error) {
        return std::string("threw invalid_argument: ") + error.what();
    } catch (const std::exception& error) {
        return std::string("threw ") + error.what();
    } catch (int number) {
        return "threw " + std::to_string(number);
    }
}

ExchangeReply reply(const char* text) {
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

/// Leaves no name behind on the process's exchange.
class ExchangeTest : public testing::Test {
protected:
    ~ExchangeTest() override {
        for (const std::string& name : names)
            api->removeQueue(name);
    }
    void addQueue(const std::string& name, const boost::shared_ptr<TestQueue>& queue) {
        api->addQueue(names.emplace_back(name), queue);
    }
    boost::unique_future<ExchangeReply> submit(const boost::shared_ptr<const exchange::Message>& message) {
        return api->submitWithReply(message, exchange::Address(api->getExchangeName(), "a"));
    }
    void add(const std::string& name, const std::shared_ptr<ServiceProvider>& provider) {
        connector->addServiceProvider(names.emplace_back(name), provider);
    }
    std::string adding(const std::string& name, const std::shared_ptr<ServiceProvider>& provider) {
        return told([&] { return connector->addServiceProvider(name, provider), "done"; });
    }
    /// What comes of a message: what the future of its reply says, or what handle() throws.
    std::string sent(const std::string& address, MessagePtr&& message = test::message("hello")) {
        return told([&] { return test::outcome(connector->handle(std::move(message), Address(address), nullptr)); });
    }
    MessagePtr counted(const std::string& text) const { return std::make_unique<TextMessage>(text, alive); }
    long living() const { return alive.use_count() - 1; }

    const std::shared_ptr<int> alive = std::make_shared<int>();
    const boost::shared_ptr<exchange::ExchangeApi> api = exchange::ExchangeApi::instance();
    const std::shared_ptr<ConnectorImpl> connector = std::make_shared<ConnectorImpl>();
    std::vector<std::string> names;
};

/// What messages and replies have in common.
template <class T>
void checkSaying(const char* type) {
    const T one, other;
    std::ostringstream text;
    text << std::left << std::setfill('.') << "x";
    one.toString(text, 3);
    EXPECT_EQ(text.str(), std::string("x   ") + type);
    EXPECT_TRUE(one.protectedEquals(one));
    EXPECT_FALSE(one.protectedEquals(other));
}

TEST_F(ExchangeTest, NamesWhatItCarries) {
    checkSaying<ForeignMessage>("connector::test::ForeignMessage");
    checkSaying<ForeignReply>("connector::test::(anonymous namespace)::ForeignReply");

    EXPECT_EQ(api->getExchangeName(), "default");
    EXPECT_EQ(exchange::DefaultExchange("mine").getExchangeName(), "mine");
    EXPECT_EQ(exchange::ExchangeApi::defaultInstance(), api);
    const auto message = boost::make_shared<ForeignMessage>();
    addQueue("a", boost::make_shared<TestQueue>([&](auto& envelope) {
                 EXPECT_EQ(envelope.getMessage(), message);
                 EXPECT_EQ(envelope.getAddress().getExchangeName(), "any");
                 EXPECT_EQ(envelope.getAddress().getQueueName(), "a");
                 sendReply(envelope, reply("yes"));
             }));
    EXPECT_EQ(outcome(api->submitWithReply(message, exchange::Address("any", "a"))), "yes");
}

// Queues that are dropped with their exchange still find it, as does what they register meanwhile.
TEST_F(ExchangeTest, DropsItsQueuesAsItIsDestroyed) {
    std::vector<std::string> events;
    auto own = boost::make_shared<exchange::DefaultExchange>("own");
    exchange::DefaultExchange* const raw = own.get();
    const auto add = [&](const std::string& name, const std::function<void()>& lastAct) {
        const auto queue = boost::make_shared<TestQueue>(
            [held = std::shared_ptr<void>(nullptr, [lastAct](void*) { lastAct(); })](auto&) {}, own);
        EXPECT_EQ(queue->exchange(), own);
        queue->onRemoval = [&events, raw, name] {
            raw->removeQueue("nobody"); // takes the lock
            throw std::runtime_error(events.emplace_back(name + " removed"));
        };
        raw->addQueue(name, queue);
    };
    add("first", [&] {
        events.push_back(outcome(raw->submitWithReply(nullptr, exchange::Address("own", "first"))));
        add("second", [&] { events.emplace_back("second dies"); });
    });
    own.reset();
    EXPECT_THAT(events, testing::ElementsAre("first removed", "threw broken_promise", "second removed", "second dies"));
}

TEST_F(ExchangeTest, AnswersForTheQueueThatIsNotThere) {
    EXPECT_EQ(outcome(submit(boost::make_shared<Undeliverable>(
                  [](auto& envelope) { return reply(envelope.getAddress().getQueueName().c_str()); }))),
              "a");
    EXPECT_EQ(outcome(submit(boost::make_shared<Undeliverable>([](auto&) -> ExchangeReply { throw Own("boom"); }))),
              "threw Own: boom");
    EXPECT_EQ(outcome(submit(boost::make_shared<Undeliverable>([](auto&) -> ExchangeReply { throw 7; }))), "threw 7");
    EXPECT_EQ(outcome(submit(boost::make_shared<ForeignMessage>())), "(empty)");
    EXPECT_EQ(outcome(submit(nullptr)), "threw broken_promise");
}

TEST_F(ExchangeTest, OwnsAQueueUntilRemovalAndTakesItsRepliesAfterwards) {
    std::vector<exchange::Routing> kept;
    const auto queue = boost::make_shared<TestQueue>([&](auto& envelope) { kept.push_back(envelope.getRouting()); });
    int removals = 0;
    queue->onRemoval = [&] {
        ++removals;
        api->removeQueue("b"); // takes the lock
    };
    addQueue("a", queue);
    EXPECT_EQ(told([&] { return api->addQueue("a", queue), "added"; }), "threw Queue 'a' already registered.");
    EXPECT_EQ(told([&] { return api->addQueue("b", nullptr), "added"; }),
              "threw invalid_argument: Queue can't be empty.");
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
    EXPECT_EQ(outcome(std::move(dropped)), "threw broken_promise");
    producer.join();
}

TEST_F(ExchangeTest, AnswersEachMessageOnce) {
    std::optional<AllocationFailure> outOfMemory;
    const auto served = [&](const TestProvider::Body& body) { return [&, body] { add("a", provider(body)); }; };
    const auto queued = [&](const TestQueue::Body& body) {
        return [&, body] { addQueue("a", boost::make_shared<TestQueue>(body)); };
    };
    const auto unserved = [] {};
    const struct {
        std::function<void()> arrange;
        const char* expected;
        const char* address = "a";
        bool staysWithTheCaller = false;
    } cases[] = {
        // What a provider does.
        {served([&](auto&&...) { return makeReadyFuture(counted("yes")); }), "yes"},
        {served([](auto&&...) { return makeReadyFuture(MessagePtr()); }), "(no message)"},
        {served([](auto&& message, auto&&...) { return makeReadyFuture(std::move(message)); }), "hello"},
        {served([](auto&&...) -> Reply { throw std::invalid_argument("boom"); }), "runtime_error: boom"},
        {served([](auto&&...) -> Reply { throw Own(""); }), "runtime_error: "},
        {served([](auto&&...) { return makeExceptionalFuture<MessagePtr>(Own("late")); }), "runtime_error: late"},
        {served([](auto&&...) {
             const auto state = std::make_shared<State>();
             state->status = detail::FutureStatus::Cancelled;
             return Reply(state);
         }),
         "runtime_error: Future has been cancelled."},
        {served([](auto&&...) { return Reply(nullptr); }), "runtime_error: Future state isn't valid!"},
        {served([&](auto&&...) {
             Reply lost = makeReadyFuture(counted("lost"));
             outOfMemory.emplace(0, false);
             return lost;
         }),
         "runtime_error: std::bad_alloc"},
        {served([](auto&&...) -> Reply { throw 7; }), "threw 7"},
        {served([](auto&&...) { return makeExceptionalFuture<MessagePtr>(7); }), "threw 7"},
        // What a queue that is none of ours does.
        {queued([](auto& envelope) { sendReply(envelope, boost::make_shared<ForeignReply>()); }),
         "runtime_error: Unknown error!"},
        {queued([](auto& envelope) { sendReply(envelope, nullptr); }), "runtime_error: Unknown error!"},
        {queued([](auto& envelope) {
             sendReply(envelope, reply("first"));
             EXPECT_NO_THROW(sendReply(envelope, reply("second")));
             throw 7;
         }),
         "runtime_error: first"},
        {queued([](auto&) { throw Own("boom"); }), "threw Own: boom"},
        {queued([](auto&) { throw 7; }), "threw 7"},
        {queued([](auto&) {}), "threw broken_promise"},
        // Nobody there.
        {unserved, "runtime_error: No service named: a", "a/b"},
        {unserved, "runtime_error: No service named: ?a", "?a"},
        {unserved, "invalid_argument: Address can't be empty.", "", true},
        {unserved, "invalid_argument: Address can't be empty.", "/a", true},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(&expected - cases);
        expected.arrange();
        MessagePtr message = counted("hello");
        EXPECT_EQ(sent(expected.address, std::move(message)), expected.expected);
        outOfMemory.reset();
        EXPECT_EQ(message != nullptr, expected.staysWithTheCaller); // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(living(), expected.staysWithTheCaller ? 1 : 0);
        connector->removeServiceProvider("a");
    }
}

TEST_F(ExchangeTest, GivesTheProviderTheCallersObjects) {
    // The reply comes when the message dies, which the provider leaves where it was: waiting for the one with the other
    // still there would be waiting for ever.
    struct Resolver : Message {
        explicit Resolver(std::shared_ptr<State> state) : state(std::move(state)) {}
        ~Resolver() override { state->setValue(message("done")); }
        const std::shared_ptr<State> state;
    };
    const auto state = std::make_shared<State>();
    const std::shared_ptr<Context> context = connector->newContext();
    MessagePtr resolver = std::make_unique<Resolver>(state);
    const Message* const original = resolver.get();
    add("a", provider([&](MessagePtr&& message, Address&& address, std::shared_ptr<Context>&& passed) {
            EXPECT_EQ(message.get(), original);
            EXPECT_EQ(address.toString(), "b/c");
            EXPECT_EQ(passed, context);
            return Reply(state);
        }));
    EXPECT_EQ(test::outcome(context->handle(std::move(resolver), Address("a/b/c"))), "done");
}

TEST_F(ExchangeTest, LetsAProviderDoAnythingWhileItIsCalled) {
    std::vector<std::string> events;
    const auto lastAct = [&](const char* event) {
        return std::shared_ptr<void>(nullptr, [&, event](void*) {
            connector->removeServiceProvider("nobody"); // takes the lock
            events.emplace_back(event);
        });
    };
    add("first", provider([&, held = lastAct("first dies")](MessagePtr&& message, Address&&, auto&&) {
            connector->removeServiceProvider("first");
            events.push_back(sent("first"));
            add("second", provider([held = lastAct("second dies")](auto&&...) { return ready("done"); }));
            return connector->handle(std::move(message), Address("second"), nullptr);
        }));
    EXPECT_EQ(sent("first"), "done");
    connector->removeServiceProvider("second");
    EXPECT_THAT(events, testing::ElementsAre("runtime_error: No service named: first", "first dies", "second dies"));
}

TEST_F(ExchangeTest, StartsAndStopsProvidersOnlyAsTheyAreAdded) {
    const auto early = provider(), late = provider(), failing = provider();
    failing->onStart = failing->onStop = [] { throw Own("boom"); };
    add("early", early);
    EXPECT_EQ(adding("b", nullptr), "threw invalid_argument: Service provider can't be empty.");
    EXPECT_EQ(adding("early", late), "threw Queue 'early' already registered.");
    EXPECT_EQ(adding("", late), "threw invalid_argument: Queue name can't be empty.");
    EXPECT_EQ(adding("failing", failing), "threw Own: boom");
    EXPECT_TRUE(failing->running);

    connector->stop();
    add("late", late);
    EXPECT_EQ(adding("failing", failing), "threw Own: boom");
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
    EXPECT_THAT((std::vector<int>{early->starts, early->stops, late->starts, late->stops}),
                testing::ElementsAre(1, 0, 2, 1));
    EXPECT_EQ(sent("early"), "hello@");
}

TEST_F(ExchangeTest, DerivesContextsFromItsProcessContext) {
    connector->newContext()->set("key", 1, ContextScope::Process);
    EXPECT_TRUE(connector->newContext()->has("key"));
    const auto replaced = connector->setProcessContext(nullptr);
    EXPECT_TRUE(replaced->has("key"));
    EXPECT_FALSE(connector->newContext()->has("key"));

    ConnectorImpl unowned;
    EXPECT_THROW(unowned.getPtr(), std::bad_weak_ptr);
    EXPECT_THROW(unowned.newContext(), std::bad_weak_ptr);
    EXPECT_EQ(unowned.setProcessContext(replaced), nullptr);
    EXPECT_TRUE(unowned.newContext()->has("key"));
}

TEST_F(ExchangeTest, RefusesForeignMessages) {
    const auto echo = provider();
    add("a", echo);
    const auto foreign = boost::make_shared<ForeignMessage>();
    EXPECT_THROW(submit(foreign).get(), boost::exception);
    EXPECT_THROW(submit(foreign).get(), fl::except::IInternalException);
    EXPECT_THROW(submit(foreign).get(), fl::except::IException);
    EXPECT_EQ(
        outcome(submit(foreign)),
        "threw Unexpected message: expected connector::WrapperMessage, received connector::test::ForeignMessage.");
    EXPECT_EQ(outcome(submit(nullptr)), "threw Unexpected message: expected connector::WrapperMessage, received none.");
    EXPECT_THROW(WrapperQueue(echo, {}).processEnvelope(nullptr), exchange::UnexpectedMessage);
    EXPECT_EQ(echo->handles, 0);
    EXPECT_EQ(told([&] { return connector->listServiceProviders(), "listed"; }),
              "threw Listing service providers isn't supported by this implementation.");
}

// Whichever allocation fails, nothing has two owners or none, and the next try succeeds.
TEST_F(ExchangeTest, LosesNothingWhenMemoryRunsOut) {
    const std::string& name = names.emplace_back("a service whose name doesn't fit a small string");
    bool struck = true;
    const auto attempt = [&](std::size_t successes, const auto& operation) {
        std::optional<AllocationFailure> failure(std::in_place, successes, false);
        const std::string got = told(operation);
        const bool failed = failure->struck();
        failure.reset();
        EXPECT_THAT(got, testing::EndsWith(failed ? "std::bad_alloc" : "done"));
        struck = struck || failed;
    };
    for (std::size_t successes = 0; struck; ++successes) {
        SCOPED_TRACE(successes);
        struck = false;
        const auto done = provider([&](auto&&...) { return makeReadyFuture(counted("done")); });
        attempt(successes, [&] { return adding(name, done); });
        EXPECT_EQ(done.use_count(), struck ? 1 : 2);
        if (struck)
            connector->addServiceProvider(name, done);
        attempt(successes, [&] {
            exchange::DefaultExchange own("own");
            std::shared_ptr<void> held(nullptr, [&own](void*) { own.removeQueue("nobody"); }); // takes the lock
            own.addQueue(name, boost::make_shared<TestQueue>([held = std::move(held)](auto&) {}));
            return std::string("done");
        });
        MessagePtr message = counted("hello");
        attempt(successes, [&] { return sent(name + "/rest", std::move(message)); });
        message.reset();
        EXPECT_EQ(living(), 0);
        EXPECT_EQ(sent(name), "done");
        connector->removeServiceProvider(name);
    }
}

TEST_F(ExchangeTest, DeliversInARaceWithRegistration) {
    const auto passing = [](int number) { return "passes " + std::to_string(number % 8); };
    for (int i = 0; i < 8; ++i)
        names.push_back(passing(i));
    add("stays", provider());
    const auto submitter = [&](int round) {
        for (int i = 0; i < 50; ++i) {
            const std::string text = std::to_string(round) + "." + std::to_string(i);
            EXPECT_EQ(sent("stays/b", message(text)), text + "@b");
            EXPECT_THAT(sent(passing(i), message(text)),
                        testing::AnyOf(text + "@", "runtime_error: No service named: " + passing(i)));
        }
    };
    const auto registrar = [&](int) {
        for (int i = 0; i < 50; ++i) {
            adding(passing(i), provider()); // refused when the other registrar was faster
            connector->removeServiceProvider(passing(i + 4));
        }
    };
    race(rounds(30), {submitter, submitter, registrar, registrar});
}

} // namespace
} // namespace connector::test
