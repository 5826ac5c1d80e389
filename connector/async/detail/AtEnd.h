#pragma once

#include <connector/async/detail/Forward.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace connector::detail {

/// The body of a link that calls a function at the end of a future, and gives a result the outcome of the future.
template <class T, class F>
class AtEnd {
public:
    template <class Function>
    AtEnd(Function&& function, std::shared_ptr<ResultState<T>> result)
        : forward(std::move(result)), function(std::in_place, std::forward<Function>(function)) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        forward.result->functionRuns.store(true, std::memory_order_relaxed);
        std::exception_ptr thrown;
        try {
            std::invoke(std::move(*function));
        } catch (...) {
            thrown = std::current_exception();
        }
        function.reset();
        if (thrown && !cancelled)
            publish(forward.result, forward.room.holdException(std::move(thrown)), work);
        else
            forward(std::move(source), cancelled, work);
    }
    const Waiter* waiter() const noexcept { return forward.waiter(); }

private:
    // Declared before the function: if allocating it fails, the caller still owns the function.
    Forward<T> forward;
    std::optional<F> function;
};

} // namespace connector::detail
