#include "support/Futures.h"
#include "support/Rounds.h"

#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>

#include <gmock/gmock.h>

#include <thread>

namespace connector::test {
namespace {

using namespace std::chrono_literals;

/// What getFor() gives; -1 stands for nothing.
template <class Limit>
std::string takenFor(Future<int>& future, Limit limit) {
    return outcomeOf([&] { return getFor(future, limit).value_or(-1); });
}

TEST(TimeLimit, LeavesAPendingFutureAsItWas) {
    Promise<int> promise;
    Future<int> future = promise.future();
    EXPECT_EQ(takenFor(future, 1ms), "-1");
    EXPECT_EQ(takenFor(future, -1h), "-1");
    EXPECT_FALSE(getUntil(future, std::chrono::system_clock::now()));
    Future<int> result = then(std::move(future), get);
    EXPECT_EQ(takenFor(result, 0s), "-1");
    promise.setValue(1);
    EXPECT_EQ(takenFor(result, 0s), "1");
    EXPECT_EQ(takenFor(result, 0s), alreadyReturned);
    EXPECT_EQ(takenFor(future, 0s), invalidText); // NOLINT(bugprone-use-after-move): what then() promises of it
}

// A resolution wakes one waiter, so there must not be a second. hours::max() is more than the clock can count.
TEST(TimeLimit, WakesItsOneWaiter) {
    for (const End* expected : {&ends[0], &ends[1], &ends[2]}) {
        auto state = std::make_shared<IntState>();
        std::string got;
        std::thread consumer(
            [&got, future = Future<int>(state)]() mutable { got = takenFor(future, std::chrono::hours::max()); });
        for (bool waiting = false; !waiting; std::this_thread::yield()) {
            const std::lock_guard<std::mutex> lock(state->mutex);
            waiting = state->retrieved;
        }
        EXPECT_EQ(taken(Future<int>(state)), alreadyReturned);
        expected->end(state);
        consumer.join();
        EXPECT_EQ(got, expected->text);
    }
}

TEST(TimeLimit, RacesWithTheResolution) {
    Promise<int> promise;
    Future<int> future(nullptr);
    int sum = 0;
    race(rounds(300),
         {[&](int) { promise.setValue(1); },
          [&](int) {
              const std::optional<int> value = getFor(future, 10us);
              sum += value ? *value : future.get();
          }},
         [&](int) { future = (promise = Promise<int>()).future(); });
    EXPECT_EQ(sum, rounds(300));
}

} // namespace
} // namespace connector::test
