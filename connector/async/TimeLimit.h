#pragma once

#include <connector/async/detail/FutureAccess.h>

#include <chrono>
#include <mutex>
#include <optional>

namespace connector {

/// Future::get() that waits until `deadline` at the longest. Returns the value, or nothing when the future was still
/// pending at that time; the future is then as it was before, to be asked again, given to then(), or cancelled. A
/// deadline that has passed asks without waiting.
///
/// Throws what get() throws. The same two rules hold: never on the thread that is to resolve the future, and while one
/// thread waits, any other that asks, or attaches something, is refused.
template <class T, class Clock, class Duration>
std::optional<T> getUntil(Future<T>& future, const std::chrono::time_point<Clock, Duration>& deadline) {
    const detail::StatePtr<T> state = detail::FutureAccess::state(future);
    {
        std::unique_lock<std::mutex> lock(state->mutex);
        if (state->retrieved || state->continuation)
            detail::throwFutureRetrieved();
        // Resolving wakes one waiter, so a second must be refused, as get() does.
        state->retrieved = true;
        const bool resolved =
            state->condition.wait_until(lock, deadline, [&] { return state->status != detail::FutureStatus::Pending; });
        state->retrieved = false;
        if (!resolved)
            return std::nullopt;
    }
    return state->get();
}

/// getUntil() with a deadline that is `limit` from now, by a clock that nobody sets. A limit beyond what that clock can
/// count is none.
template <class T, class Rep, class Period>
std::optional<T> getFor(Future<T>& future, const std::chrono::duration<Rep, Period>& limit) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    const Clock::time_point now = Clock::now();
    if (Seconds(limit) >= Seconds(Clock::time_point::max() - now))
        return getUntil(future, Clock::time_point::max());
    return getUntil(future, now + std::chrono::ceil<Clock::duration>(limit));
}

} // namespace connector
