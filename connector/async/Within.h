#pragma once

#include <connector/async/detail/Limit.h>
#include <connector/async/detail/Seconds.h>
#include <connector/async/detail/Step.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

namespace connector {

/// A reply with a time limit: has the outcome of `future`, or, if that is still pending after `limit`, fails with
/// std::system_error (std::errc::timed_out) and cancels `future`.
///
///     Future<int> stock = ask("warehouse") | within(std::chrono::milliseconds(200));
///
/// The limit is measured by the steady clock, from this call. One that isn't positive fails what isn't resolved yet;
/// one beyond what the clock can count is none. When time is up, `future` is cancelled, and then the result fails, on
/// the process's one timer thread. Other limits wait while the continuation runs there, so let it be short, or give it
/// a thread with via(). The timer thread ends with the process.
///
/// Cancelling the result cancels `future`. Takes `future` over. Throws std::invalid_argument ("Time limit can't be
/// NaN."), std::system_error if the timer thread can't be started, and as then(); `future` is then unchanged. Nothing
/// is allocated later.
template <class T, class Rep, class Period>
Future<T> within(Future<T>&& future, const std::chrono::duration<Rep, Period>& limit) {
    using Clock = detail::Timer::Clock;
    const detail::Seconds left = limit;
    detail::rejectNaN(left);
    const detail::StatePtr<T> state = detail::FutureAccess::state(future);
    const bool pending = detail::FutureAccess::unclaimed(*state) == detail::FutureStatus::Pending;
    const auto result = std::make_shared<detail::LimitedState<T>>();
    result->upstream = detail::upstreamOf(state);
    auto link = std::make_unique<detail::LinkTo<T, detail::Limit<T>>>(result);
    if (pending)
        detail::Timer::start(result, detail::later<Clock>(Clock::now(), std::max(left, detail::Seconds(0))));
    detail::Work work;
    detail::attachForward(detail::FutureAccess::take(std::move(future)), std::move(link), work);
    work.run();
    return Future<T>(result);
}

/// The same for `future | within(limit)`.
template <class Rep, class Period>
auto within(const std::chrono::duration<Rep, Period>& limit) {
    return detail::Step{[limit](auto&& future) { return within(std::move(future), limit); }};
}

} // namespace connector
