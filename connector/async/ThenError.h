#pragma once

#include <connector/async/detail/ContinueWith.h>
#include <connector/async/detail/OnError.h>
#include <connector/async/detail/Step.h>

#include <type_traits>
#include <utility>
#include <variant>

namespace connector {

/// Continues with a failed reply: if its exception is an `E`, calls `function` with it, once. The result gets what the
/// function returns: a value of the same type, or a Future of it.
///
///     Future<int> stock = ask("main") | thenError<std::runtime_error>([](auto&) { return ask("spare"); });
///
/// A value, and an exception of another type, go to the result without calling the function. It is called inside a
/// handler, so `throw;` rethrows the exception. Several in a row are tried in their order; an exception that one of
/// them throws is caught by the next. A cancelled reply isn't a failure: as with then(), the function isn't called. All
/// else is as with then(), its errors included.
template <class E, class T, class F>
auto thenError(Future<T>&& future, F&& function) -> Future<T> {
    using Function = std::decay_t<F>;
    constexpr bool takesError = std::is_invocable_v<Function, E&>;
    static_assert(takesError, "the function given to thenError<E>() must take one argument, the E");
    if constexpr (takesError) {
        using Returned = std::invoke_result_t<Function, E&>;
        constexpr bool givesFuture = std::is_same_v<Returned, Future<T>>;
        constexpr bool givesValue =
            std::is_void_v<Returned> ? std::is_same_v<T, std::monostate> : std::is_convertible_v<Returned, T>;
        static_assert(givesFuture || givesValue,
                      "the function given to thenError<E>() must return the type of its future, or a Future of it");
        if constexpr (givesFuture || givesValue) {
            using Body = detail::Apply<T, detail::OnError<E, T, Function>, T, givesFuture>;
            return detail::continueWith<Body, T>(std::move(future), std::forward<F>(function));
        }
    }
    return Future<T>(nullptr);
}

/// The same for `future | thenError<E>(function)`.
template <class E, class F>
auto thenError(F&& function) {
    return detail::Step{[function = std::forward<F>(function)](auto&& future) mutable {
        return thenError<E>(std::move(future), std::move(function));
    }};
}

} // namespace connector
