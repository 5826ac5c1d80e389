#pragma once

#include <connector/async/detail/FutureAccess.h>

#include <chrono>
#include <cmath>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <type_traits>

namespace connector {

namespace detail {

/// Holds any duration of any clock nearly enough; what is converted from it is rounded up.
using Seconds = std::chrono::duration<long double>;

inline void rejectNaN(Seconds time) {
    if (std::isnan(time.count()))
        throw std::invalid_argument("Time limit can't be NaN.");
}

/// `from` and `by`, not beyond what the clock can count.
template <class Clock>
typename Clock::time_point later(typename Clock::time_point from, Seconds by) {
    // The second is for what the sum may lose by rounding.
    if (by + Seconds(1) >= Seconds(Clock::time_point::max() - from))
        return Clock::time_point::max();
    return from + std::chrono::ceil<typename Clock::duration>(by);
}

/// Future::get() that waits until the time that `wakeAt` gives, and then asks it for another, until it gives none. A
/// maximum stands for no limit. `wakeAt` is called with no lock held; what it throws leaves the future as it was.
template <class T, class WakeAt>
std::optional<T> getBefore(Future<T>& future, WakeAt wakeAt) {
    using Time = typename decltype(wakeAt())::value_type;
    const StatePtr<T> state = FutureAccess::state(future);
    std::unique_lock<std::mutex> lock(state->mutex);
    // Resolving wakes one waiter, so a second must be refused, as get() does.
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

/// Future::get() that waits until `deadline` at the longest. Returns the value, or nothing when the future was still
/// pending at that time; the future is then as it was before, to be asked again, given to then(), or cancelled. A
/// deadline that has passed asks without waiting. One that is the time_point's maximum, or further away than the
/// standard clocks can count, is none.
///
/// Any clock will do. It is read on this thread with no lock held, when the future is pending and after each wait, so a
/// clock that was set back meanwhile lengthens the wait. What it throws leaves the future as it was.
///
/// Throws std::invalid_argument ("Time limit can't be NaN.") and what get() throws. The same two rules hold: never on
/// the thread that is to resolve the future, and while one thread waits, any other that asks, or attaches something, is
/// refused.
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
        // A clock that the condition variable can wait by is waited by, so that setting it forward counts too.
        if constexpr (std::is_same_v<Clock, Waited>)
            return detail::later<Waited>(Time(), end);
        else
            return detail::later<Waited>(Waited::now(), left);
    });
}

/// getUntil() with a deadline that is `limit` from now, by a clock that nobody sets. A limit that isn't positive asks
/// without waiting; one beyond what that clock can count is none.
template <class T, class Rep, class Period>
[[nodiscard]] std::optional<T> getFor(Future<T>& future, const std::chrono::duration<Rep, Period>& limit) {
    using Clock = std::chrono::steady_clock;
    const detail::Seconds left = limit;
    detail::rejectNaN(left);
    return getUntil(future, left.count() > 0 ? detail::later<Clock>(Clock::now(), left) : Clock::time_point::min());
}

} // namespace connector
