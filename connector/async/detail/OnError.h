#pragma once

#include <connector/async/detail/Apply.h>

#include <functional>
#include <type_traits>
#include <utility>

namespace connector::detail {

/// Calls a function with the exception of a resolved future if that is an E.
template <class E, class T, class F>
class OnError {
    using Returned = std::invoke_result_t<F, E&>;
    using GivesFuture = std::is_same<Returned, Future<T>>;

public:
    template <class Function, class = std::enable_if_t<!std::is_same_v<std::decay_t<Function>, OnError>>>
    explicit OnError(Function&& function) : function(std::forward<Function>(function)) {}

    std::conditional_t<GivesFuture::value, Future<T>, T> operator()(Future<T> source) && {
        // Outside of the block: what moving a T throws isn't a failure of the reply.
        if (!FutureAccess::failed(source)) {
            if constexpr (GivesFuture::value)
                return source;
            else
                return source.get();
        }
        try {
            rethrowOutcome(FutureAccess::takeFailure(source));
        } catch (E& error) {
            if constexpr (std::is_void_v<Returned>) {
                std::invoke(std::move(function), error);
                return T();
            } else {
                return std::invoke(std::move(function), error);
            }
        }
    }

private:
    F function;
};

} // namespace connector::detail
