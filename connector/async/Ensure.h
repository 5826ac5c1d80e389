#pragma once

#include <connector/async/detail/AtEnd.h>
#include <connector/async/detail/ContinueWith.h>
#include <connector/async/detail/Step.h>

#include <type_traits>
#include <utility>

namespace connector {

/// Calls `function`, without arguments, at the end of a reply, whatever that is: a value, an exception, a cancellation,
/// or the destruction of its producer. The result has the same outcome.
///
///     Future<Price> price = ask(std::move(order)) | ensure([ticket] { ticket->release(); });
///
/// An exception of the function replaces the outcome; if the reply was cancelled, it is lost. When the reply is
/// cancelled, the function runs on the thread that cancels, before the result is cancelled. All else is as with then(),
/// its errors included.
template <class T, class F>
auto ensure(Future<T>&& future, F&& function) -> Future<T> {
    using Function = std::decay_t<F>;
    constexpr bool takesNothing = std::is_invocable_v<Function>;
    static_assert(takesNothing, "the function given to ensure() must take no arguments");
    if constexpr (takesNothing)
        return detail::continueWith<detail::AtEnd<T, Function>, T>(std::move(future), std::forward<F>(function));
    else
        return Future<T>(nullptr);
}

/// The same for `future | ensure(function)`.
template <class F>
auto ensure(F&& function) {
    return detail::Step{[function = std::forward<F>(function)](auto&& future) mutable {
        return ensure(std::move(future), std::move(function));
    }};
}

} // namespace connector
