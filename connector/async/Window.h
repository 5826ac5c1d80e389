#pragma once

#include <connector/async/Cancel.h>
#include <connector/async/Ensure.h>
#include <connector/async/ThenValue.h>
#include <connector/async/detail/Gates.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace connector {

/// Calls `function`, which returns a future, with each of `items`, in their order, so that at most `atOnce` of the
/// futures are pending at a time. Returns one future for each item, with the outcome of the function's:
///
///     Future<std::vector<Price>> prices = collect(window(std::move(orders), 8, ask));
///
/// The first calls are made here, each further one on the thread on which an earlier item ends. Calls don't overlap.
/// A function that throws ends its item. Cancelling a future ends its item; if the item wasn't begun, `function` isn't
/// called with it. Dropping the futures doesn't end anything.
///
/// Takes the items over. Throws std::invalid_argument ("A window needs room for one item.") if `atOnce` is 0, and
/// std::bad_alloc; `function` wasn't called then.
template <class Item, class F>
[[nodiscard]] auto window(std::vector<Item> items, std::size_t atOnce, F&& function)
    -> std::vector<std::invoke_result_t<std::decay_t<F>&, Item>> {
    if (atOnce == 0)
        throw std::invalid_argument("A window needs room for one item.");
    const auto gates = std::make_shared<detail::Gates>(items.size());
    const auto shared = std::make_shared<std::decay_t<F>>(std::forward<F>(function));
    std::vector<std::invoke_result_t<std::decay_t<F>&, Item>> results;
    results.reserve(items.size());
    try {
        for (std::size_t index = 0; index < items.size(); ++index)
            results.push_back(gates->gate(index) |
                              thenValue([shared, item = std::move(items[index])](std::monostate) mutable {
                                  return std::invoke(*shared, std::move(item));
                              }) |
                              ensure([gates, index] { gates->ended(index); }));
    } catch (...) {
        // The gates that have been made own the functions that own the gates.
        for (auto& result : results)
            cancel(result);
        throw;
    }
    gates->open(std::clamp<std::size_t>(items.size(), 1, atOnce));
    return results;
}

} // namespace connector
