#pragma once

#include <connector/async/detail/Apply.h>
#include <connector/async/detail/ContinueWith.h>
#include <connector/async/detail/ThenResult.h>

#include <type_traits>
#include <utility>

namespace connector {

/// Continues with a reply: calls `function` with the resolved future, once, and returns a future for its result.
///
///     Future<int> length = then(host->handle(...), [](Future<std::unique_ptr<Message>> reply) {
///         return lengthOf(*reply.get()); // throws the exception of a failed reply
///     });
///
/// - The function is called on the thread that resolves `future`, inside the resolving call. If `future` is already
///   resolved, it is called inside then(). No lock is held. The function must not wait for its own result.
/// - An exception that leaves the function is the result's exception; this includes one thrown by `reply.get()`. A
///   function that returns nothing gives a Future<std::monostate>. A function that returns a Future<R> gives a
///   Future<R>, which gets the outcome of the returned future. If the returned future has no state, the result fails
///   with "Future state isn't valid!". If its value is already claimed, the result fails with "Future already returned
///   it's value or has an associated continuation.".
/// - The function is destroyed, with its captures, on the thread that called it, before the result is resolved. A
///   captured object whose destructor waits for the result therefore waits forever.
/// - When `future` is cancelled, or its state is destroyed unresolved, the function is destroyed without being called,
///   and then the result is cancelled.
/// - Cancelling the result cancels `future`, or the future that the function has returned. While the function runs, or
///   is about to run because the reply has arrived, cancelling doesn't wait for it: the result is cancelled at once,
///   and the function is destroyed when it has returned. Dropping the result cancels nothing; the function is still
///   called.
///
/// A chain may have any length: resolving, cancelling or dropping it needs no more stack than one link. A function that
/// is called inside then() and calls then() itself is ordinary recursion, and so is one that resolves or drops another
/// promise.
///
/// Takes `future` over and leaves it invalid. Throws std::runtime_error if the future has no state ("Future state isn't
/// valid!") or its value is already claimed ("Future already returned it's value or has an associated continuation."),
/// and std::bad_alloc. `future` is then unchanged, and after std::bad_alloc `function` too. All memory is allocated in
/// this call: once then() has returned, no outcome is lost for lack of memory.
template <class T, class F>
auto then(Future<T>&& future, F&& function) -> Future<typename detail::ThenResultOf<T, std::decay_t<F>>::Value> {
    using Function = std::decay_t<F>;
    using Result = detail::ThenResultOf<T, Function>;
    using R = typename Result::Value;
    constexpr bool takesFuture = std::is_invocable_v<Function, Future<T>>;
    static_assert(takesFuture, "the function given to then() must take one argument, the resolved Future<T>");
    if constexpr (takesFuture) {
        using Body = detail::Apply<T, Function, R, Result::value>;
        return detail::continueWith<Body, R>(std::move(future), std::forward<F>(function));
    } else {
        return Future<R>(nullptr);
    }
}

} // namespace connector
