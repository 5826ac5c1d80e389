#include "support/Messages.h"
#include "support/Rounds.h"

#include <gmock/gmock.h>

#include <atomic>

namespace connector::test {
namespace {

using detail::FutureStatus;
using State = detail::SharedFutureState<MessagePtr>;

/// Asks its state when it dies: it must not die under the state's mutex.
class Asking {
public:
    explicit Asking(std::weak_ptr<State> state) : state(std::move(state)) {}
    Asking(const Asking&) = delete;
    Asking& operator=(const Asking&) = delete;
    ~Asking() {
        if (const auto locked = state.lock())
            const std::lock_guard<std::mutex> lock(locked->mutex);
    }

private:
    const std::weak_ptr<State> state;
};

class Counting : public detail::FutureContinuation<MessagePtr> {
public:
    Counting(std::function<void(Reply&&)> body, const std::shared_ptr<State>& state)
        : body(std::move(body)), asking(state) {}
    void invoke(Reply&& future) override { body(std::move(future)); }

private:
    const std::function<void(Reply&&)> body;
    const Asking asking;
};

void attach(const std::shared_ptr<State>& state, std::function<void(Reply&&)> body) {
    std::unique_ptr<Counting> continuation = std::make_unique<Counting>(std::move(body), state);
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

// A producer, a canceller and the one who continues meet on one state; each holds it for itself and lets go when done,
// so the last reference goes on any of the three threads. One outcome comes of it, the message dies once, and the
// continuation runs once unless the state was cancelled before.
TEST(FutureRace, OfResolvingCancellingContinuingAndLeaving) {
    const auto alive = std::make_shared<int>(0);
    std::shared_ptr<State> produced;
    std::shared_ptr<State> cancelled;
    std::shared_ptr<State> continued;
    std::weak_ptr<State> last;
    std::atomic<int> answered{0};
    std::atomic<int> refused{0};
    std::atomic<int> wasCancelled{0};
    const int count = rounds(400);
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
          [&](int) {
              const std::shared_ptr<State> state = std::move(continued);
              attach(state, [&](Reply&& reply) {
                  if (outcome(std::move(reply)) == "x")
                      ++answered;
                  else
                      ++wasCancelled;
              });
          }},
         [&](int) {
             EXPECT_TRUE(last.expired());
             last = produced = cancelled = continued = std::make_shared<State>();
         });
    EXPECT_EQ(answered + refused, count);
    EXPECT_LE(wasCancelled, refused);
    EXPECT_TRUE(last.expired());
    EXPECT_EQ(alive.use_count(), 1);
}

TEST(FutureRace, OfGettingTwice) {
    std::unique_ptr<Reply> first;
    std::unique_ptr<Reply> second;
    std::shared_ptr<State> produced;
    std::atomic<int> answered{0};
    const int count = rounds(300);
    const auto take = [&](std::unique_ptr<Reply>& reply) {
        return [&](int) {
            const std::string got = outcome(std::move(*reply));
            if (got == "x")
                ++answered;
            else
                EXPECT_EQ(got, "runtime_error: Future already returned it's value or has an associated continuation.");
        };
    };
    race(count,
         {take(first), take(second),
          [&](int) {
              const std::shared_ptr<State> state = std::move(produced);
              state->setValue(message("x"));
          }},
         [&](int) {
             produced = std::make_shared<State>();
             first = std::make_unique<Reply>(produced);
             second = std::make_unique<Reply>(produced);
         });
    EXPECT_EQ(answered, count);
}

} // namespace
} // namespace connector::test
