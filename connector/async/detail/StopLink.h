#pragma once

#include <connector/async/detail/CoroutinePromise.h>
#include <connector/async/detail/Forward.h>

#include <coroutine>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>

namespace connector::detail {

/// The body of a link that passes an outcome on, and cancels the result when a stop is requested.
template <class T>
class ForwardUntilStop {
public:
    ForwardUntilStop(std::stop_token token, const std::shared_ptr<ResultState<T>>& result)
        : forward(result), stopped(std::in_place, std::move(token), Stop{result}) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        // If a stop is being requested on another thread, waits until the result is cancelled.
        stopped.reset();
        forward(std::move(source), cancelled, work);
    }
    void refuse(Work& work) { forward.refuse(work); }
    const Waiter* waiter() const noexcept { return forward.waiter(); }

private:
    struct Stop {
        std::weak_ptr<ResultState<T>> result;
        void operator()() const {
            if (const std::shared_ptr<ResultState<T>> pending = result.lock())
                cancelState<T>(pending);
        }
    };

    Forward<T> forward;
    std::optional<std::stop_callback<Stop>> stopped;
};

/// The awaiter of stopToken().
struct StopTokenRequest {
    std::stop_source source;

    bool await_ready() const noexcept { return false; }
    template <class P>
    bool await_suspend(std::coroutine_handle<P> coroutine) {
        const auto stop = [source = source]() mutable { source.request_stop(); };
        coroutine.promise().onCancel(std::make_unique<CancelFunction<std::decay_t<decltype(stop)>>>(stop));
        return false;
    }
    std::stop_token await_resume() const noexcept { return source.get_token(); }
};

} // namespace connector::detail
