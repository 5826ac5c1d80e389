#include "support/Futures.h"
#include "support/Rounds.h"

#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>

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

/// Returns once a consumer has asked for the value and not given up.
void awaitWaiter(IntState& state) {
    for (bool waits = false; !waits; std::this_thread::yield()) {
        const std::lock_guard<std::mutex> lock(state.mutex);
        waits = state.retrieved;
    }
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
            std::thread consumer([&got, &wait, future = Future<int>(state)]() mutable {
                got = outcomeOf([&] { return wait(future).value_or(-1); });
            });
            awaitWaiter(*state);
            EXPECT_EQ(taken(Future<int>(state)), alreadyReturned);
            expected->end(state);
            consumer.join();
            EXPECT_EQ(got, expected->text);
        }
}

// In even rounds, a second consumer asks again and again: the first one still gets the value that it was woken for. In
// odd rounds, the time limit races with the value.
TEST(TimeLimit, RacesWithTheResolutionAndWithOtherConsumers) {
    std::shared_ptr<IntState> state;
    std::atomic<bool> done{false};
    race(rounds(600),
         {[&](int round) {
              if (round % 2 == 0)
                  awaitWaiter(*state);
              state->setValue(1);
          },
          [&](int round) {
              Future<int> future(state);
              const std::string got = takenFor(future, std::chrono::microseconds(round % 2 ? 10us : 1h));
              EXPECT_EQ(got == "-1" && round % 2 ? taken(future) : got, "1");
              done = true;
          },
          [&](int round) {
              if (round % 2 == 0)
                  awaitWaiter(*state);
              for (Future<int> future(state); round % 2 == 0 && !done;)
                  EXPECT_EQ(takenFor(future, 0s), alreadyReturned);
          }},
         [&](int) {
             state = std::make_shared<IntState>();
             done = false;
         });
}

} // namespace
} // namespace connector::test
