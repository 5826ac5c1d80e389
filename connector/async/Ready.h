#pragma once

#include <connector/async/detail/FutureAccess.h>

#include <exception>
#include <type_traits>
#include <utility>

namespace connector {

/// makeReadyFuture() without the yield: a future that already has `value`. For providers that answer at once.
///
/// Allocates the state and the cell of its value. If one fails, throws std::bad_alloc, and the caller still owns
/// `value`.
template <class T>
[[nodiscard]] Future<std::remove_reference_t<T>> ready(T&& value) {
    static_assert(!std::is_reference_v<T>, "a future takes its value over: pass an rvalue");
    const auto state = detail::makeState<T>();
    state->outcome.value = ::new T(std::move(value)); // NOLINT(bugprone-move-forwarding-reference): it is an rvalue
    state->status = detail::FutureStatus::HasValue;
    return Future<T>(state);
}

/// makeExceptionalFuture() without the yield: a future that has already failed with `exception`, as an E. Throws
/// std::bad_alloc.
template <class T, class E>
[[nodiscard]] Future<T> failed(E exception) {
    const auto state = detail::makeState<T>();
    state->outcome.exception = new std::exception_ptr(detail::makeException(std::move(exception)));
    state->status = detail::FutureStatus::HasException;
    return Future<T>(state);
}

} // namespace connector
