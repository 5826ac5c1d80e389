#pragma once

#include <connector/async/detail/AllGathering.h>

#include <memory>
#include <tuple>
#include <utility>
#include <vector>

namespace connector {

/// Waits for all of `futures` without blocking a thread. The result gives the same futures back, in their order, when
/// each of them is resolved or cancelled:
///
///     for (Future<int>& part : whenAll(std::move(parts)).get())
///         sum += part.get(); // the part's value or exception
///
/// The result is resolved on the thread that resolves the last future. If all are already resolved, or there are none,
/// it is resolved inside whenAll(). Cancelling the result cancels each future that it still waits for.
///
/// A future that has no state, or whose value is already claimed, counts as arrived. It comes back unchanged and isn't
/// cancelled with the result. A future whose state was destroyed comes back invalid; the result keeps no pending state
/// alive.
///
/// Takes the futures over and leaves the vector empty. Throws std::bad_alloc; nothing has changed then.
template <class T>
[[nodiscard]] Future<std::vector<Future<T>>> whenAll(std::vector<Future<T>>&& futures) {
    return detail::gather<detail::AllGathering<T>, std::vector<Future<T>>>(std::move(futures));
}

/// The same for futures of different types, as a tuple.
///
///     auto [price, stock] = co_await whenAll(std::move(priced), std::move(counted));
template <class First, class... Rest>
[[nodiscard]] auto whenAll(Future<First>&& first, Future<Rest>&&... rest)
    -> Future<std::tuple<Future<First>, Future<Rest>...>> {
    using Gathering = detail::TupleGathering<First, Rest...>;
    auto result = std::make_shared<detail::ResultState<typename Gathering::Futures>>();
    const auto gathering = std::make_shared<Gathering>(result);
    constexpr std::index_sequence_for<First, Rest...> indices;
    auto links = gathering->prepare(indices, first, rest...);
    // From here on, nothing throws.
    result->upstream = gathering->upstream();
    detail::Work work;
    gathering->begin(indices, std::move(first), std::move(rest)..., std::move(links), work);
    work.run();
    return Future<typename Gathering::Futures>(std::move(result));
}

} // namespace connector
