#pragma once

#include <connector/api/Future.h>

#include <type_traits>
#include <variant>

namespace connector::detail {

/// The result of then() for a function that returns an R: true if R is a future, and the type that the result carries.
/// A future carries an object, so a function that returns nothing gives a std::monostate.
template <class R>
struct ThenResult : std::false_type {
    using Value = std::conditional_t<std::is_void_v<R>, std::monostate, R>;
};

template <class R>
struct ThenResult<Future<R>> : std::true_type {
    using Value = R;
};

/// The same for a function F that is called with a Future<T>. An F that can't be called also has a result, so that
/// then() is chosen and its static_assert explains the error.
template <class T, class F, bool = std::is_invocable_v<F, Future<T>>>
struct ThenResultOf : ThenResult<void> {};

template <class T, class F>
struct ThenResultOf<T, F, true> : ThenResult<std::decay_t<std::invoke_result_t<F, Future<T>>>> {};

} // namespace connector::detail
