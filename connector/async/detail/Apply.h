#pragma once

#include <connector/async/detail/Forward.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace connector::detail {

/// The body of a link that calls a host function with a future and resolves a result with its value or exception. The
/// function is destroyed before the result is resolved or cancelled.
template <class T, class F, class R>
class Apply {
public:
    template <class Function>
    Apply(Function&& function, std::shared_ptr<ResultState<R>> result)
        : result(std::move(result)), function(std::in_place, std::forward<Function>(function)) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        if (cancelled) {
            function.reset();
            return cancelResult(result, work);
        }
        result->functionRuns.store(true, std::memory_order_relaxed);
        Outcome<R> outcome = room.hold([&]() -> R {
            if constexpr (std::is_void_v<std::invoke_result_t<F, Future<T>>>) {
                std::invoke(std::move(*function), std::move(source));
                return R();
            } else {
                return std::invoke(std::move(*function), std::move(source));
            }
        });
        function.reset();
        publish(result, std::move(outcome), work);
    }
    const Waiter* waiter() const noexcept { return result.get(); }

private:
    // Declared before the function: if allocating the room fails, the caller still owns the function.
    OutcomeRoom<R> room;
    const std::shared_ptr<ResultState<R>> result;
    std::optional<F> function;
};

/// Like Apply, for a function that returns a future: the result gets the outcome of that future.
template <class T, class F, class R>
class ApplyAndForward {
public:
    template <class Function>
    ApplyAndForward(Function&& function, std::shared_ptr<ResultState<R>> result)
        : forward(std::make_unique<ForwardLink<R>>(std::move(result))),
          function(std::in_place, std::forward<Function>(function)) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        const std::shared_ptr<ResultState<R>>& result = forward->body.result;
        if (cancelled) {
            function.reset();
            return cancelResult(result, work);
        }
        result->functionRuns.store(true, std::memory_order_relaxed);
        Future<R> inner(nullptr);
        try {
            inner = std::invoke(std::move(*function), std::move(source));
        } catch (...) {
            function.reset();
            return publish(result, forward->body.room.holdException(std::current_exception()), work);
        }
        function.reset();
        forwardFrom(std::move(inner), std::move(forward), work);
    }
    const Waiter* waiter() const noexcept { return forward->body.result.get(); }

private:
    std::unique_ptr<ForwardLink<R>> forward;
    std::optional<F> function;
};

} // namespace connector::detail
