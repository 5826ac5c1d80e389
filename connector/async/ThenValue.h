#pragma once

#include <connector/async/detail/ContinueWith.h>
#include <connector/async/detail/OnValue.h>
#include <connector/async/detail/Step.h>
#include <connector/async/detail/ThenResult.h>

#include <type_traits>
#include <utility>

namespace connector {

/// Continues with the value of a reply: calls `function` with it, once, and returns a future for its result.
///
///     Future<int> length = connector->handle(...) | thenValue([](std::unique_ptr<Message> reply) {
///         return lengthOf(*reply);
///     });
///
/// A failure goes to the result without calling the function. A `function` for a Future<std::monostate> may take
/// nothing. All else is as with then(), its errors included.
template <class T, class F>
auto thenValue(Future<T>&& future, F&& function) {
    using OnValue = detail::OnValue<T, std::decay_t<F>>;
    static_assert(OnValue::TakesValue::value, "the function given to thenValue() must take one argument, the value");
    using Result = detail::ThenResultOf<T, OnValue>;
    using R = typename Result::Value;
    return detail::continueWith<detail::Apply<T, OnValue, R, Result::value>, R>(std::move(future),
                                                                                std::forward<F>(function));
}

/// The same for `future | thenValue(function)`.
template <class F>
auto thenValue(F&& function) {
    return detail::Step{[function = std::forward<F>(function)](auto&& future) mutable {
        return thenValue(std::move(future), std::move(function));
    }};
}

} // namespace connector
