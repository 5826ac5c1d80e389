#include "support/Allocations.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>
#include <type_traits>

namespace connector::test {
namespace {

using detail::FutureStatus;
using Value = std::unique_ptr<int>;
using State = detail::SharedFutureState<Value>;

static_assert(std::is_nothrow_move_constructible_v<Reply> && std::is_nothrow_move_assignable_v<Reply>);
static_assert(!std::is_copy_constructible_v<Reply> && !std::is_default_constructible_v<Reply>);
static_assert(std::is_same_v<decltype(std::declval<Reply&>().get()), MessagePtr>);
static_assert(std::is_convertible_v<std::shared_ptr<State>, Future<Value>>);

constexpr const char* alreadyReturned = "Future already returned it's value or has an associated continuation.";

Value value(int number) {
    return std::make_unique<int>(number);
}

/// What get() gives: the number as text, or the text of what it throws.
std::string taken(Future<Value>& future) {
    try {
        const Value got = future.get();
        return got ? std::to_string(*got) : "(empty)";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

/// Says which thread ran it and what its future gave.
class Probe : public detail::FutureContinuation<Value> {
public:
    explicit Probe(std::function<void(Future<Value>&)> body) : body(std::move(body)) {}
    void invoke(Future<Value>&& future) override { body(future); }

private:
    const std::function<void(Future<Value>&)> body;
};

void attach(State& state, std::function<void(Future<Value>&)> body) {
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.continuation = std::make_unique<Probe>(std::move(body));
}

void cancel(State& state) {
    std::unique_lock<std::mutex> lock(state.mutex);
    state.status = FutureStatus::Cancelled;
    state.notifyResolved(lock);
}

TEST(Future, InEachStatusDoesWhatItsTableSays) {
    const struct {
        const char* name;
        std::function<void(State&)> prepare;
        const char* producerGets;
        const char* consumerGets;
    } cases[] = {
        {"pending", [](State&) {}, "accepted", "2"},
        {"value", [](State& state) { state.setValue(value(1)); }, "Promise already resolved.", "1"},
        {"exception", [](State& state) { state.setException(std::make_exception_ptr(std::runtime_error("boom"))); },
         "Promise already resolved.", "boom"},
        {"cancelled", [](State& state) { cancel(state); }, "ignored", "Future has been cancelled."},
        {"outside the four", [](State& state) { state.status = static_cast<FutureStatus>(4); },
         "Promise already resolved.", "Invalid Future state reached."},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        const auto state = std::make_shared<State>();
        Future<Value> future(state);
        expected.prepare(*state);

        Value offered = value(2);
        std::string producerGot;
        try {
            state->setValue(std::move(offered));
            producerGot = offered ? "ignored" : "accepted"; // NOLINT(bugprone-use-after-move)
        } catch (const std::runtime_error& error) {
            producerGot = error.what();
            EXPECT_TRUE(offered);
        }
        EXPECT_EQ(producerGot, expected.producerGets);
        if (producerGot == "ignored")
            state->setException(std::make_exception_ptr(std::logic_error("ignored as well")));
        else
            EXPECT_THROW(state->setException(nullptr), std::runtime_error);
        EXPECT_EQ(taken(future), expected.consumerGets);
        EXPECT_EQ(taken(future), alreadyReturned);
        EXPECT_TRUE(future.valid());
    }
}

TEST(Future, WithoutAStateIsInvalid) {
    Future<Value> none(nullptr);
    EXPECT_FALSE(none.valid());
    EXPECT_EQ(taken(none), "Future state isn't valid!");

    Future<Value> future = makeReadyFuture(value(1));
    Future<Value> moved(std::move(future));
    EXPECT_FALSE(future.valid()); // NOLINT(bugprone-use-after-move): what is promised of it
    none = std::move(moved);
    EXPECT_FALSE(moved.valid()); // NOLINT(bugprone-use-after-move)
    Future<Value>& self = none;
    none = std::move(self);
    EXPECT_EQ(taken(none), "1");
}

TEST(Future, FailsWithWhatItWasGiven) {
    Future<Value> typed = makeExceptionalFuture<Value>(std::invalid_argument("Address can't be empty."));
    EXPECT_THROW(typed.get(), std::invalid_argument);

    Future<Value> current(nullptr);
    try {
        throw 7;
    } catch (...) {
        current = makeExceptionalFuture<Value>();
    }
    EXPECT_THROW(current.get(), int);

    // A pointer to an exception stands for that exception, one level deep; a null one only for itself.
    const auto inner = std::make_exception_ptr(std::runtime_error("inner"));
    Future<Value> nested = makeExceptionalFuture<Value>(inner);
    EXPECT_EQ(taken(nested), "inner");
    Future<Value> twice = makeExceptionalFuture<Value>(std::make_exception_ptr(inner));
    EXPECT_THROW(twice.get(), std::exception_ptr);
    Future<Value> null = makeExceptionalFuture<Value>(std::exception_ptr());
    EXPECT_THROW(null.get(), std::exception_ptr);
    Future<Value> noneCurrent = makeExceptionalFuture<Value>();
    EXPECT_THROW(noneCurrent.get(), std::exception_ptr);
}

TEST(Future, RunsItsContinuationOnceOnTheResolvingThread) {
    const auto state = std::make_shared<State>();
    Future<Value> outside(state);
    std::vector<std::string> seen;
    std::thread::id ranOn;
    std::thread::id resolvedOn;
    attach(*state, [&](Future<Value>& future) {
        ranOn = std::this_thread::get_id();
        seen.push_back(taken(future));
        seen.push_back(taken(outside));
        const std::unique_lock<std::mutex> lock(state->mutex, std::try_to_lock);
        EXPECT_TRUE(lock.owns_lock());
    });
    EXPECT_EQ(taken(outside), alreadyReturned);
    std::thread([&] {
        resolvedOn = std::this_thread::get_id();
        state->setValue(value(3));
    }).join();
    EXPECT_EQ(ranOn, resolvedOn);
    EXPECT_THAT(seen, testing::ElementsAre("3", alreadyReturned));
}

TEST(Future, ThrowsWhatItsContinuationThrowsOutOfTheResolution) {
    const auto state = std::make_shared<State>();
    attach(*state, [](Future<Value>&) { throw std::logic_error("continuation"); });
    EXPECT_THROW(state->setValue(value(1)), std::logic_error);
    EXPECT_FALSE(state->continuation);
    Future<Value> future(state);
    EXPECT_EQ(taken(future), "1");
}

TEST(Future, DropsContinuationsAndValuesThatNobodyTook) {
    const auto alive = std::make_shared<int>(0);
    for (const bool cancelled : {false, true}) {
        const auto state = std::make_shared<State>();
        attach(*state, [alive](Future<Value>&) { ADD_FAILURE() << "nothing was resolved"; });
        if (cancelled)
            cancel(*state);
        EXPECT_EQ(alive.use_count(), 2);
    }
    EXPECT_EQ(alive.use_count(), 1);
    {
        const Reply untaken = makeReadyFuture<MessagePtr>(std::make_unique<TextMessage>("x", alive));
        EXPECT_EQ(alive.use_count(), 2);
    }
    EXPECT_EQ(alive.use_count(), 1);
}

TEST(Future, CostsTwoAllocationsAndNoneToTake) {
    Value one = value(1);
    const AllocationCount allocations;
    Future<Value> future = makeReadyFuture(std::move(one));
    EXPECT_EQ(allocations(), 2u);
    EXPECT_TRUE(future.get());
    EXPECT_EQ(allocations(), 2u);
}

TEST(Future, LosesNothingWhenMemoryRunsOut) {
    for (const std::size_t successes : {0u, 1u}) {
        Value offered = value(1);
        const AllocationFailure failure(successes, false);
        EXPECT_THROW(static_cast<void>(makeReadyFuture(std::move(offered))), std::bad_alloc);
        EXPECT_TRUE(offered); // NOLINT(bugprone-use-after-move)
    }
    const auto state = std::make_shared<State>();
    Value offered = value(1);
    {
        const AllocationFailure failure(0, false);
        EXPECT_THROW(state->setValue(std::move(offered)), std::bad_alloc);
    }
    state->setValue(std::move(offered)); // NOLINT(bugprone-use-after-move)
    Future<Value> future(state);
    EXPECT_EQ(taken(future), "1");
}

// The consumer lets go of everything as soon as it has the value, while the resolving call is still under way.
TEST(Future, SurvivesTheRaceWithAConsumerThatLeavesAtOnce) {
    std::shared_ptr<State> produced;
    std::shared_ptr<State> consumed;
    int sum = 0;
    race(rounds(300),
         {[&](int round) {
              const std::shared_ptr<State> state = std::move(produced);
              state->setValue(value(round));
          },
          [&](int) { sum += *Future<Value>(std::move(consumed)).get(); }},
         [&](int) { consumed = produced = std::make_shared<State>(); });
    EXPECT_EQ(sum, rounds(300) * (rounds(300) - 1) / 2);
}

} // namespace
} // namespace connector::test
