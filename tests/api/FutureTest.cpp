#include "support/Allocations.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <type_traits>

namespace connector::test {
namespace {

using detail::FutureStatus;
using State = detail::SharedFutureState<MessagePtr>;

static_assert(std::is_nothrow_move_constructible_v<Reply> && std::is_nothrow_move_assignable_v<Reply>);
static_assert(!std::is_copy_constructible_v<Reply> && !std::is_default_constructible_v<Reply>);
static_assert(std::is_same_v<decltype(std::declval<Reply&>().get()), MessagePtr>);
static_assert(std::is_convertible_v<std::shared_ptr<State>, Reply>);

constexpr const char* alreadyReturned =
    "runtime_error: Future already returned it's value or has an associated continuation.";

std::string taken(Reply& future) {
    return outcome(std::move(future)); // which only asks it
}

/// Locks its state's mutex when it is destroyed: that must not happen under the same mutex.
class Continuation : public detail::FutureContinuation<MessagePtr> {
public:
    Continuation(std::function<void(Reply&&)> body, std::weak_ptr<State> state)
        : body(std::move(body)), state(std::move(state)) {}
    ~Continuation() override {
        if (const auto alive = state.lock())
            const std::lock_guard<std::mutex> lock(alive->mutex);
    }
    void invoke(Reply&& future) override { body(std::move(future)); }

private:
    const std::function<void(Reply&&)> body;
    const std::weak_ptr<State> state;
};

void attach(const std::shared_ptr<State>& state, std::function<void(Reply&&)> body) {
    auto continuation = std::make_unique<Continuation>(std::move(body), state);
    std::unique_lock<std::mutex> lock(state->mutex);
    if (state->status == FutureStatus::Pending) {
        state->continuation = std::move(continuation);
        return;
    }
    lock.unlock();
    continuation->invoke(Reply(state));
}

void cancel(State& state) {
    std::unique_lock<std::mutex> lock(state.mutex);
    if (state.status != FutureStatus::Pending)
        return;
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
        {"pending", [](State&) {}, "done", "offered"},
        {"value", [](State& state) { state.setValue(message("x")); }, "runtime_error: Promise already resolved.", "x"},
        {"exception", [](State& state) { state.setException(std::make_exception_ptr(std::logic_error("boom"))); },
         "runtime_error: Promise already resolved.", "logic_error: boom"},
        {"cancelled", [](State& state) { cancel(state); }, "done", "runtime_error: Future has been cancelled."},
        {"outside the four", [](State& state) { state.status = static_cast<FutureStatus>(4); },
         "runtime_error: Promise already resolved.", "runtime_error: Invalid Future state reached."},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        const auto state = std::make_shared<State>();
        Reply future(state);
        expected.prepare(*state);
        MessagePtr offered = message("offered");
        const bool taker = state->status == FutureStatus::Pending;
        EXPECT_EQ(told([&] { state->setValue(std::move(offered)); }), expected.producerGets);
        EXPECT_EQ(offered == nullptr, taker); // NOLINT(bugprone-use-after-move): it is still ours
        EXPECT_EQ(told([&] { state->setException(nullptr); }),
                  taker ? "runtime_error: Promise already resolved." : expected.producerGets);
        EXPECT_EQ(taken(future), expected.consumerGets);
        EXPECT_EQ(taken(future), alreadyReturned);
        EXPECT_TRUE(future.valid());
    }
}

TEST(Future, WithoutAStateIsInvalid) {
    Reply none(nullptr);
    EXPECT_FALSE(none.valid());
    EXPECT_EQ(taken(none), "runtime_error: Future state isn't valid!");

    Reply future = ready("x");
    Reply moved(std::move(future));
    EXPECT_FALSE(future.valid()); // NOLINT(bugprone-use-after-move): what is promised of it
    none = std::move(moved);
    EXPECT_FALSE(moved.valid()); // NOLINT(bugprone-use-after-move)
    Reply& self = none;
    none = std::move(self);
    EXPECT_EQ(taken(none), "x");
}

// A pointer to an exception stands for that exception, one level deep; a null one only for itself.
TEST(Future, FailsWithWhatItWasGiven) {
    const auto inner = std::make_exception_ptr(std::invalid_argument("inner"));
    EXPECT_EQ(outcome(makeExceptionalFuture<MessagePtr>(std::invalid_argument("x"))), "invalid_argument: x");
    EXPECT_EQ(outcome(makeExceptionalFuture<MessagePtr>(inner)), "invalid_argument: inner");
    const auto throwsPointer = [](Reply&& future) { EXPECT_THROW(future.get(), std::exception_ptr); };
    throwsPointer(makeExceptionalFuture<MessagePtr>(std::make_exception_ptr(inner)));
    throwsPointer(makeExceptionalFuture<MessagePtr>(std::exception_ptr()));
    throwsPointer(makeExceptionalFuture<MessagePtr>());
    try {
        throw 7;
    } catch (...) {
        EXPECT_THROW(makeExceptionalFuture<MessagePtr>().get(), int);
    }
}

TEST(Future, RunsItsContinuationOnceOnTheResolvingThread) {
    const auto state = std::make_shared<State>();
    Reply outside(state);
    std::vector<std::string> seen;
    std::thread::id ranOn;
    std::thread::id resolvedOn;
    attach(state, [&](Reply&& future) {
        ranOn = std::this_thread::get_id();
        seen = {taken(future), taken(outside)};
        EXPECT_TRUE(std::unique_lock(state->mutex, std::try_to_lock)) << "a lock is held";
        throw std::logic_error("continuation");
    });
    EXPECT_EQ(taken(outside), alreadyReturned);
    std::thread([&] {
        resolvedOn = std::this_thread::get_id();
        EXPECT_EQ(told([&] { state->setValue(message("x")); }), "logic_error: continuation");
    }).join();
    EXPECT_EQ(ranOn, resolvedOn);
    EXPECT_THAT(seen, testing::ElementsAre("x", alreadyReturned));
    EXPECT_FALSE(state->continuation);
}

TEST(Future, DropsContinuationsAndValuesThatNobodyTook) {
    const auto alive = std::make_shared<int>(0);
    for (const bool cancelled : {false, true}) {
        const auto state = std::make_shared<State>();
        attach(state, [alive](Reply&&) { ADD_FAILURE() << "nothing was resolved"; });
        if (cancelled)
            cancel(*state);
        EXPECT_EQ(alive.use_count(), 2);
    }
    static_cast<void>(makeReadyFuture<MessagePtr>(std::make_unique<TextMessage>("x", alive)));
    EXPECT_EQ(alive.use_count(), 1);
}

TEST(Future, CostsTwoAllocationsAndLosesNothingWithoutThem) {
    MessagePtr offered = message("x");
    for (const std::size_t successes : {0u, 1u}) {
        const AllocationFailure failure(successes, false);
        EXPECT_THROW(static_cast<void>(makeReadyFuture(std::move(offered))), std::bad_alloc);
        EXPECT_TRUE(offered); // NOLINT(bugprone-use-after-move): it is still ours
    }
    const auto state = std::make_shared<State>();
    for (const bool value : {true, false}) {
        const auto boom = std::make_exception_ptr(7);
        const AllocationFailure failure(0, false);
        EXPECT_THROW(value ? state->setValue(std::move(offered)) : state->setException(boom), std::bad_alloc);
    }
    state->setValue(std::move(offered)); // NOLINT(bugprone-use-after-move)
    offered = Reply(state).get();
    const AllocationCount allocations;
    EXPECT_TRUE(makeReadyFuture(std::move(offered)).get());
    EXPECT_EQ(allocations(), 2u);
}

// A producer, a canceller and a consumer meet on one state. Each has a reference of its own and releases it when it is
// done, the consumer also while the resolving call is running. There is one outcome, the message is destroyed once, and
// the continuation runs once unless the state was cancelled before.
TEST(FutureRace, OfResolvingCancellingAndConsuming) {
    const auto alive = std::make_shared<int>(0);
    std::shared_ptr<State> produced;
    std::shared_ptr<State> cancelled;
    std::shared_ptr<State> consumed;
    std::weak_ptr<State> last;
    std::atomic<int> answered{0};
    std::atomic<int> refused{0};
    std::atomic<int> wasCancelled{0};
    const int count = rounds(600);
    const auto consume = [&](Reply&& reply) { ++(outcome(std::move(reply)) == "x" ? answered : wasCancelled); };
    race(count,
         {[&](int) {
              const std::shared_ptr<State> state = std::move(produced);
              MessagePtr answer = std::make_unique<TextMessage>("x", alive);
              state->setValue(std::move(answer));
              if (answer) // NOLINT(bugprone-use-after-move): it stays here when the state was cancelled
                  ++refused;
          },
          [&](int round) {
              const std::shared_ptr<State> state = std::move(cancelled);
              if (round % 2 == 0)
                  cancel(*state);
          },
          [&](int round) {
              if (round % 4 < 2)
                  consume(Reply(std::move(consumed)));
              else
                  attach(std::exchange(consumed, nullptr), consume);
          }},
         [&](int) {
             EXPECT_TRUE(last.expired());
             last = produced = cancelled = consumed = std::make_shared<State>();
         });
    EXPECT_EQ(answered + refused, count);
    EXPECT_LE(wasCancelled, refused);
    EXPECT_TRUE(last.expired());
    EXPECT_EQ(alive.use_count(), 1);
}

TEST(FutureRace, OfGettingTwice) {
    std::shared_ptr<State> state;
    std::atomic<int> answered{1};
    const auto take = [&](int) {
        const std::string got = outcome(Reply(state));
        EXPECT_TRUE(got == "x" || got == alreadyReturned) << got;
        answered += got == "x";
    };
    race(rounds(300), {take, take, [&](int) { state->setValue(message("x")); }}, [&](int) {
        EXPECT_EQ(answered, 1);
        answered = 0;
        state = std::make_shared<State>();
    });
}

} // namespace
} // namespace connector::test
