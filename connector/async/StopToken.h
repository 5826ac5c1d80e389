#pragma once

#include <connector/async/Coroutine.h>

#if __has_include(<stop_token>) && defined(__cpp_impl_coroutine)

#include <connector/async/detail/Step.h>
#include <connector/async/detail/StopLink.h>

#include <memory>
#include <stop_token>
#include <utility>

namespace connector {

/// Has the outcome of `future`, or is cancelled, with `future`, when a stop is requested of `token`:
///
///     Future<int> stock = ask("warehouse") | cancelOn(token);
///
/// The cancellation runs on the thread that requests the stop; cancel() says what it does. Takes `future` over. Throws
/// as then(); `future` is then unchanged.
template <class T>
Future<T> cancelOn(Future<T>&& future, std::stop_token token) {
    detail::FutureAccess::unclaimed(*detail::FutureAccess::state(future));
    auto result = std::make_shared<detail::ResultState<T>>(detail::upstreamOf(detail::FutureAccess::state(future)));
    auto link = std::make_unique<detail::LinkTo<T, detail::ForwardUntilStop<T>>>(std::move(token), result);
    detail::Work work;
    detail::attachForward(detail::FutureAccess::take(std::move(future)), std::move(link), work);
    work.run();
    return Future<T>(std::move(result));
}

/// The same for `future | cancelOn(token)`.
inline auto cancelOn(std::stop_token token) {
    return detail::Step{
        [token = std::move(token)](auto&& future) mutable { return cancelOn(std::move(future), std::move(token)); }};
}

/// In a coroutine that returns a Future: a token that is stopped when that future is cancelled.
///
///     const std::stop_token token = co_await stopToken();
///
/// Doesn't suspend. Throws std::bad_alloc.
inline detail::StopTokenRequest stopToken() {
    return {};
}

} // namespace connector

#endif
