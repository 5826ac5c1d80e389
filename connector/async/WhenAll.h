#pragma once

#include <connector/async/detail/Gathering.h>

#include <cstddef>
#include <memory>
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
    const auto result = std::make_shared<detail::ResultState<std::vector<Future<T>>>>();
    const auto gathering = std::make_shared<detail::Gathering<T>>(futures, result);
    auto links = detail::arriveLinks(gathering, futures.size());
    // From here on, nothing throws.
    gathering->futures.swap(futures);
    result->upstream = detail::upstreamOf(gathering);
    // No link is attached to the result yet, so an arrival adds no work.
    detail::Work work;
    for (std::size_t index = 0; index < links.size(); ++index)
        detail::await(*gathering, index, std::move(links[index]), work);
    gathering->countDown(work);
    return Future<std::vector<Future<T>>>(result);
}

} // namespace connector
