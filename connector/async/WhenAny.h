#pragma once

#include <connector/async/detail/AnyGathering.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace connector {

/// The outcome of whenAny().
template <class T>
struct WhenAnyResult {
    std::size_t index = 0; ///< of the first future that ended; the number of futures if none could be waited for
    std::vector<Future<T>> futures; ///< all futures, in their order
};

/// What whenAny() does with the futures that haven't ended when the first has.
enum class Others {
    Keep,   ///< gives them back pending
    Cancel, ///< cancels them
};

/// Waits for the first of `futures` that ends: is resolved or cancelled, or loses its producer.
///
///     auto [index, replies] = whenAny(std::move(asked), Others::Cancel).get();
///     use(index, replies[index].get());
///
/// The result gives all futures back, in their order; those that haven't ended come back pending, or cancelled if you
/// ask for that. It is resolved on the thread that ends the first future, or inside whenAny() if one has ended already,
/// which is then the first in the order. Cancelling the result cancels each future that it still waits for.
///
/// A future that has no state, or whose value is already claimed, isn't waited for: it comes back unchanged, and its
/// index isn't given. Without any other future, the result is resolved at once. All else is as with whenAll().
template <class T>
[[nodiscard]] Future<WhenAnyResult<T>> whenAny(std::vector<Future<T>>&& futures, Others others = Others::Keep) {
    using Result = WhenAnyResult<T>;
    return detail::gather<detail::AnyGathering<T, Result>, Result>(std::move(futures), others == Others::Cancel);
}

} // namespace connector
