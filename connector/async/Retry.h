#pragma once

#include <connector/async/detail/Retry.h>
#include <connector/async/detail/ThenResult.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace connector {

/// How retry() tries again.
struct RetryPolicy {
    /// The highest number of calls; at least one is made.
    int attempts = 3;

    /// The pause after the first failure. Each further pause is twice as long.
    std::chrono::nanoseconds pause = std::chrono::milliseconds(100);

    /// The limit of the pauses.
    std::chrono::nanoseconds longestPause = std::chrono::seconds(10);

    /// The part of each pause that is random, from 0 to 1, so that clients that failed together don't come back
    /// together.
    double jitter = 0.5;

    /// Whether to try again after this exception. Called on the thread on which the attempt failed; every failure is
    /// retried if it is empty.
    std::function<bool(const std::exception_ptr&)> retries;
};

/// Calls `function`, which returns a future, until that has a value, at most `policy.attempts` times:
///
///     Future<int> stock = retry(RetryPolicy(), [] { return ask("warehouse"); });
///
/// The result has the value, or the exception of the last attempt; what `function` throws counts as one. The first call
/// is made here, each further one after a pause, on the process's timer thread (see within()). None is made while an
/// earlier reply is pending.
///
/// A reply that is cancelled, or loses its producer, cancels the result; it isn't retried. Cancelling the result
/// cancels the reply or the pause, and no further call is made. `function` is destroyed before the result is resolved
/// or cancelled. A retry takes the same memory however often it tries. If there is none for an attempt, that attempt
/// fails with std::bad_alloc.
///
/// Takes `function` over. Throws std::bad_alloc; `function` wasn't called then.
template <class F>
[[nodiscard]] auto retry(RetryPolicy policy, F&& function) -> std::invoke_result_t<std::decay_t<F>&> {
    using Reply = std::invoke_result_t<std::decay_t<F>&>;
    static_assert(detail::ThenResult<Reply>::value, "the function given to retry() must return a future");
    using T = typename detail::ThenResult<Reply>::Value;
    using Retry = detail::Retry<T, std::decay_t<F>, RetryPolicy>;
    const auto result = std::make_shared<detail::ResultState<T>>(detail::Upstream());
    detail::Work work;
    Retry::attempt(std::make_unique<Retry>(std::move(policy), std::forward<F>(function), result), work);
    work.run();
    return Reply(result);
}

} // namespace connector
