#pragma once

#include <connector/async/detail/AfterState.h>
#include <connector/async/detail/Seconds.h>

#include <chrono>
#include <memory>
#include <variant>

namespace connector {

/// A future that is resolved after `limit`, on the process's one timer thread; see within() for the clock, the limit
/// and that thread. Inside this call if the limit isn't positive.
///
///     Future<std::monostate> later = after(std::chrono::seconds(1)) | thenValue([] { refresh(); });
///
/// Cancelling it stops the timer; dropping it doesn't. Throws std::invalid_argument ("Time limit can't be NaN."),
/// std::system_error if the timer thread can't be started, and std::bad_alloc.
template <class Rep, class Period>
[[nodiscard]] Future<std::monostate> after(const std::chrono::duration<Rep, Period>& limit) {
    using Clock = detail::Timer::Clock;
    const detail::Seconds left = limit;
    detail::rejectNaN(left);
    const auto state = std::make_shared<detail::AfterState>();
    state->upstream = detail::AfterState::timer(state);
    if (left.count() > 0)
        detail::Timer::start(state, detail::later<Clock>(Clock::now(), left));
    else
        state->expired();
    return Future<std::monostate>(state);
}

} // namespace connector
