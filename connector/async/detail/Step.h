#pragma once

#include <connector/api/Future.h>

#include <utility>

namespace connector {

namespace detail {

/// An operation without its future: thenValue(function) and the like.
template <class Attach>
struct Step {
    Attach attach;
};

template <class Attach>
Step(Attach) -> Step<Attach>;

} // namespace detail

/// `future | thenValue(function)` is `thenValue(std::move(future), function)`, and so for each operation that can be
/// written without its future. Throws what the operation throws; `future` is then unchanged.
template <class T, class Attach>
auto operator|(Future<T>&& future, detail::Step<Attach>&& step) {
    return step.attach(std::move(future));
}

} // namespace connector
