#pragma once

#include <connector/async/detail/ValueGathering.h>

#include <utility>
#include <vector>

namespace connector {

/// The values of all `futures`, in their order, or the first failure:
///
///     std::vector<int> prices = collect(std::move(asked)).get();
///
/// If a future fails, the result fails with the same exception, at once, and the futures that haven't ended are
/// cancelled. If one is cancelled or loses its producer, the result and the others are cancelled. One without a state,
/// or whose value is already claimed, fails the result as get() would. Cancelling the result cancels each future that
/// it still waits for. All else is as with whenAll().
template <class T>
[[nodiscard]] Future<std::vector<T>> collect(std::vector<Future<T>>&& futures) {
    return detail::gather<detail::ValueGathering<T>, std::vector<T>>(std::move(futures));
}

} // namespace connector
