#pragma once

#include <connector/async/detail/Apply.h>

#include <functional>
#include <type_traits>
#include <utility>
#include <variant>

namespace connector::detail {

/// Calls a function with the value of a resolved future.
template <class T, class F>
class OnValue {
public:
    // A future without a value to speak of carries a std::monostate, which the function needn't take.
    using TakesNothing = std::conjunction<std::is_same<T, std::monostate>, std::is_invocable<F>>;
    using TakesValue = std::disjunction<TakesNothing, std::is_invocable<F, T>>;

    template <class Function, class = std::enable_if_t<!std::is_same_v<std::decay_t<Function>, OnValue>>>
    explicit OnValue(Function&& function) : function(std::forward<Function>(function)) {}

    decltype(auto) operator()(Future<T> source) && {
        if constexpr (TakesNothing::value) {
            source.get();
            return std::invoke(std::move(function));
        } else if constexpr (TakesValue::value) {
            return std::invoke(std::move(function), source.get());
        }
    }

private:
    F function;
};

template <class T, class F>
struct SkipsFailures<OnValue<T, F>> : std::true_type {};

} // namespace connector::detail
