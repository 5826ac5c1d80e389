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

/// True for an F that is called with values only. A failure then goes to the result without being thrown.
template <class F>
struct SkipsFailures : std::false_type {};

/// The body of a link that calls a host function with a future and gives a result the outcome. If `forwards`, the
/// function returns a future, and the result gets the outcome of that one. The function is destroyed before the result
/// is resolved or cancelled.
template <class T, class F, class R, bool forwards>
class Apply {
public:
    template <class Function>
    Apply(Function&& function, std::shared_ptr<ResultState<R>> result)
        : target(makeTarget(std::move(result))), function(std::in_place, std::forward<Function>(function)) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        if (cancelled) {
            function.reset();
            return cancelResult(result(), work);
        }
        if constexpr (SkipsFailures<F>::value) {
            if (FutureAccess::failed(source)) {
                function.reset();
                return publish(result(), room().holdException(FutureAccess::takeFailure(source)), work);
            }
        }
        result()->functionRuns.store(true, std::memory_order_relaxed);
        if constexpr (forwards) {
            Future<R> inner(nullptr);
            try {
                inner = std::invoke(std::move(*function), std::move(source));
            } catch (...) {
                function.reset();
                return publish(result(), room().holdException(std::current_exception()), work);
            }
            function.reset();
            forwardFrom(std::move(inner), std::move(target), work);
        } else {
            Outcome<R> outcome = room().hold([&]() -> R {
                if constexpr (std::is_void_v<std::invoke_result_t<F, Future<T>>>) {
                    std::invoke(std::move(*function), std::move(source));
                    return R();
                } else {
                    return std::invoke(std::move(*function), std::move(source));
                }
            });
            function.reset();
            publish(result(), std::move(outcome), work);
        }
    }
    const Waiter* waiter() const noexcept { return result().get(); }

private:
    using Target = std::conditional_t<forwards, std::unique_ptr<ForwardLink<R>>, Forward<R>>;

    static Target makeTarget(std::shared_ptr<ResultState<R>> result) {
        if constexpr (forwards)
            return std::make_unique<ForwardLink<R>>(std::move(result));
        else
            return Forward<R>(std::move(result));
    }
    const std::shared_ptr<ResultState<R>>& result() const noexcept {
        if constexpr (forwards)
            return target->body.result;
        else
            return target.result;
    }
    OutcomeRoom<R>& room() noexcept {
        if constexpr (forwards)
            return target->body.room;
        else
            return target.room;
    }

    // Declared before the function: if allocating it fails, the caller still owns the function.
    Target target;
    std::optional<F> function;
};

} // namespace connector::detail
