#pragma once

#include <connector/async/detail/FutureAccess.h>
#include <connector/async/detail/Seconds.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <type_traits>

namespace connector {

namespace detail {

/// Future::get() that waits until the time that `wakeAt` returns, then calls it again, until it returns none. The
/// clock's maximum means no limit. `wakeAt` is called with no lock held; if it throws, the future is unchanged.
template <class T, class WakeAt>
std::optional<T> getBefore(Future<T>& future, WakeAt wakeAt) {
    using Time = typename decltype(wakeAt())::value_type;
    const StatePtr<T> state = FutureAccess::state(future);
    std::unique_lock<std::mutex> lock(state->mutex);
    // Resolving wakes one waiter, so a second one is refused, as in get().
    FutureAccess::claim(*state);
    const auto resolved = [&] { return state->status != FutureStatus::Pending; };
    while (!resolved()) {
        lock.unlock();
        std::optional<Time> wake;
        try {
            wake = wakeAt();
        } catch (...) {
            lock.lock();
            state->retrieved = false;
            throw;
        }
        lock.lock();
        if (wake == Time::max()) {
            state->condition.wait(lock, resolved);
        } else if (wake) {
            state->condition.wait_until(lock, *wake, resolved);
        } else if (!resolved()) {
            state->retrieved = false;
            return std::nullopt;
        }
    }
    return FutureAccess::takeOutcome(*state, std::move(lock));
}

} // namespace detail

/// Future::get() with a deadline. Returns the value, or nothing if the future is still pending at that time:
///
///     if (std::optional<int> answer = getUntil(future, deadline))
///         std::cout << *answer;
///
/// A future that is still pending is unchanged: wait again, give it to then(), or cancel it. If the deadline has
/// passed, the call doesn't wait. The maximum of the time_point, or a deadline further away than the standard clocks
/// can count, means no limit.
///
/// Any clock may be used. It is read on this thread with no lock held, while the future is pending and after each wait,
/// so a clock that is set back during a wait lengthens it. If reading it throws, the future is unchanged.
///
/// Throws std::invalid_argument ("Time limit can't be NaN.") and the exceptions of get(). As with get(), never call it
/// on the thread that is to resolve the future. While one thread waits, a second wait and a continuation are refused.
template <class T, class Clock, class Duration>
[[nodiscard]] std::optional<T> getUntil(Future<T>& future, const std::chrono::time_point<Clock, Duration>& deadline) {
    using System = std::chrono::system_clock;
    using Waited = std::conditional_t<std::is_same_v<Clock, System>, System, std::chrono::steady_clock>;
    using Time = typename Waited::time_point;
    const detail::Seconds end = deadline.time_since_epoch();
    detail::rejectNaN(end);
    return detail::getBefore(future, [&]() -> std::optional<Time> {
        if (deadline == std::chrono::time_point<Clock, Duration>::max())
            return Time::max();
        const detail::Seconds left = end - detail::Seconds(Clock::now().time_since_epoch());
        if (!(left.count() > 0))
            return std::nullopt;
        // The condition variable waits by a standard clock itself, so that setting the clock forward ends the wait.
        if constexpr (std::is_same_v<Clock, Waited>)
            return detail::later<Waited>(Time(), end);
        else
            return detail::later<Waited>(Waited::now(), left);
    });
}

/// getUntil() with a deadline that is `limit` from now, by the steady clock. With a limit that isn't positive, the
/// call doesn't wait. A limit further away than that clock can count means no limit.
template <class T, class Rep, class Period>
[[nodiscard]] std::optional<T> getFor(Future<T>& future, const std::chrono::duration<Rep, Period>& limit) {
    using Clock = std::chrono::steady_clock;
    const detail::Seconds left = limit;
    detail::rejectNaN(left);
    return getUntil(future, left.count() > 0 ? detail::later<Clock>(Clock::now(), left) : Clock::time_point::min());
}

} // namespace connector
