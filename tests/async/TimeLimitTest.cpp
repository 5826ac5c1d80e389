#include "support/Futures.h"
#include "support/Rounds.h"

#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>

#include <gmock/gmock.h>

#include <atomic>
#include <cmath>
#include <thread>

namespace connector::test {
namespace {

using namespace std::chrono_literals;

/// What getFor() gives; -1 stands for nothing.
template <class Limit>
std::string takenFor(Future<int>& future, Limit limit) {
    return outcomeOf([&] { return getFor(future, limit).value_or(-1); });
}

/// A clock of the host, which counts in thirds of a second. It does `work` when it is read.
struct HostClock {
    using duration = std::chrono::duration<std::int64_t, std::ratio<1, 3>>;
    using time_point = std::chrono::time_point<HostClock>;
    static std::function<int()> work;
    static time_point now() { return time_point(duration(work())); }
};
std::function<int()> HostClock::work;

template <class Clock, class Duration = typename Clock::duration>
using Time = std::chrono::time_point<Clock, Duration>;
using std::chrono::hours, std::chrono::steady_clock, std::chrono::system_clock;
using Float = std::chrono::duration<float>;

TEST(TimeLimit, LeavesAPendingFutureAsItWas) {
    Promise<int> promise;
    Future<int> future = promise.future();
    const auto until = [&](auto deadline) {
        return outcomeOf([&] { return getUntil(future, deadline).value_or(-1); });
    };
    for (const std::string& got : {takenFor(future, 1ms), takenFor(future, -1h), takenFor(future, hours(-3'000'000)),
                                   takenFor(future, hours::min()), takenFor(future, std::chrono::nanoseconds::min()),
                                   takenFor(future, Float(1e-3F)), takenFor(future, -Float(INFINITY)),
                                   until(system_clock::now()), until(Time<steady_clock>::min()),
                                   until(Time<system_clock, hours>::min()), until(Time<system_clock, Float>())})
        EXPECT_EQ(got, "-1");
    for (const std::string& got : {takenFor(future, Float(NAN)), until(Time<HostClock, Float>(Float(NAN)))})
        EXPECT_EQ(got, "Time limit can't be NaN.");

    std::string asked;
    int reads = 0;
    HostClock::work = [&] { return asked = takenFor(future, 0s), reads++ / 3; };
    EXPECT_EQ(until(Time<HostClock>::min()), "-1");
    EXPECT_EQ(until(Time<HostClock, std::chrono::milliseconds>(2ms)), "-1");
    EXPECT_EQ(reads, 4) << "asked again while it stood still";
    EXPECT_EQ(asked, alreadyReturned);
    HostClock::work = []() -> int { throw std::runtime_error("no time"); };
    EXPECT_EQ(until(Time<HostClock>()), "no time");
    Future<int> result = then(std::move(future), get);
    EXPECT_EQ(takenFor(result, 0s), "-1");
    promise.setValue(1);
    EXPECT_EQ(takenFor(result, 0s), "1");
    EXPECT_EQ(takenFor(result, 0s), alreadyReturned);
    EXPECT_EQ(takenFor(future, 0s), invalidText); // NOLINT(bugprone-use-after-move): what then() promises of it
}

/// A thread that waits for a future over `state`, once it does.
template <class Wait>
std::thread waiting(const std::shared_ptr<IntState>& state, std::string& got, Wait wait) {
    std::thread consumer([&got, wait, future = Future<int>(state)]() mutable {
        got = outcomeOf([&] { return wait(future).value_or(-1); });
    });
    for (bool waits = false; !waits; std::this_thread::yield()) {
        const std::lock_guard<std::mutex> lock(state->mutex);
        waits = state->retrieved;
    }
    return consumer;
}

// A resolution wakes one waiter, so there must not be a second. None of these limits is one.
TEST(TimeLimit, WakesItsOneWaiter) {
    HostClock::work = [] { return 1; };
    using Wait = std::function<std::optional<int>(Future<int>&)>;
    const auto within = [](auto limit) -> Wait { return [=](Future<int>& future) { return getFor(future, limit); }; };
    const auto until = [](auto time) -> Wait { return [=](Future<int>& future) { return getUntil(future, time); }; };
    for (const Wait& wait :
         {Wait([](Future<int>& future) { return future.get(); }), within(hours::max()), within(Float::max()),
          within(std::chrono::nanoseconds::max()), until(Time<steady_clock>::max()),
          until(Time<system_clock, Float>::max()), until(Time<system_clock, hours>::max()),
          until(Time<HostClock>::max()), until(Time<HostClock, std::chrono::duration<signed char>>::max()),
          until(Time<HostClock>(HostClock::duration(INT64_MAX / 2)))})
        for (const End* expected : {&ends[0], &ends[1], &ends[2]}) {
            auto state = std::make_shared<IntState>();
            std::string got;
            std::thread consumer = waiting(state, got, wait);
            EXPECT_EQ(taken(Future<int>(state)), alreadyReturned);
            expected->end(state);
            consumer.join();
            EXPECT_EQ(got, expected->text);
        }
}

// It takes the value that it was woken for; nobody can come between.
TEST(TimeLimit, RacesWithOtherConsumers) {
    for (int round = 0; round < rounds(300); ++round) {
        auto state = std::make_shared<IntState>();
        std::string got;
        std::thread consumer = waiting(state, got, [](Future<int>& future) { return getFor(future, 1h); });
        std::atomic<bool> done{false};
        std::thread other([&, future = Future<int>(state)]() mutable {
            while (!done)
                EXPECT_EQ(takenFor(future, 0s), alreadyReturned);
        });
        state->setValue(1);
        consumer.join();
        done = true;
        other.join();
        EXPECT_EQ(got, "1");
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
