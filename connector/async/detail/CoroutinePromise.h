#pragma once

#include <connector/async/detail/CoroutineAwaiter.h>
#include <connector/async/detail/ProducerState.h>

#include <coroutine>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

namespace connector {

class Address;
class Context;
class Message;
class ServiceProvider;

namespace detail {

/// The awaiter of `co_await awaitable`: the awaitable itself, or the result of its operator co_await.
template <class Awaitable>
decltype(auto) awaiterOf(Awaitable&& awaitable) {
    if constexpr (requires { std::forward<Awaitable>(awaitable).operator co_await(); })
        return std::forward<Awaitable>(awaitable).operator co_await();
    else if constexpr (requires { operator co_await(std::forward<Awaitable>(awaitable)); })
        return operator co_await(std::forward<Awaitable>(awaitable));
    else
        return std::forward<Awaitable>(awaitable);
}

/// The awaiter of any other awaitable, in a coroutine with a future. `Wrapped` is an awaiter or a reference to one.
template <class Wrapped>
struct Suspension {
    Wrapped awaiter;
    CoroutineBase& base;

    decltype(auto) await_ready() { return awaiter.await_ready(); }
    // Not inlined, for the reason given at End. A coroutine that isn't suspended after all keeps its loop's work.
    template <class P>
    [[gnu::noinline]] auto await_suspend(std::coroutine_handle<P> coroutine) {
        using Result = decltype(awaiter.await_suspend(coroutine));
        Work* const work = std::exchange(base.work, nullptr);
        try {
            if constexpr (std::is_void_v<Result>) {
                awaiter.await_suspend(coroutine);
            } else {
                Result result = awaiter.await_suspend(coroutine);
                bool resumes = false;
                if constexpr (std::is_same_v<Result, bool>)
                    resumes = !result;
                else
                    resumes = std::coroutine_handle<>(result) == coroutine;
                if (resumes)
                    base.work = work;
                return result;
            }
        } catch (...) {
            base.work = work;
            throw;
        }
    }
    decltype(auto) await_resume() { return awaiter.await_resume(); }
};

/// The promise type of a coroutine that returns a Future<T>.
template <class T>
class CoroutinePromise : public CoroutineBase {
public:
    CoroutinePromise() : result(makeProducerState<T>()) {}

    Future<T> get_return_object() const { return Future<T>(result); }
    std::suspend_never initial_suspend() const noexcept { return {}; }
    void return_value(T value) noexcept {
        outcome = room.hold([&] { return std::move(value); });
    }
    void unhandled_exception() noexcept { outcome = room.holdException(std::current_exception()); }

    template <class Awaitable>
    auto await_transform(Awaitable&& awaitable) {
        return Suspension<decltype(awaiterOf(std::forward<Awaitable>(awaitable)))>{
            awaiterOf(std::forward<Awaitable>(awaitable)), *this};
    }
    template <class U>
    Awaiter<U> await_transform(Future<U>& future) noexcept {
        return Awaiter<U>(future);
    }
    template <class U>
    Awaiter<U> await_transform(Future<U>&& future) noexcept {
        return Awaiter<U>(future);
    }

    template <class U, class Executor>
    ViaAwaiter<U, Executor> await_transform(Via<U, Executor>&& routed) noexcept {
        return ViaAwaiter<U, Executor>(std::move(routed));
    }

    /// The end of the coroutine: destroys the frame, then resolves the future. Not inlined, nor is any await_suspend()
    /// that continues when the coroutine may be destroyed: the compiler could place its variables in the frame.
    struct End {
        bool await_ready() const noexcept { return false; }
        [[gnu::noinline]] void await_suspend(std::coroutine_handle<CoroutinePromise> coroutine) const noexcept {
            CoroutinePromise& promise = coroutine.promise();
            const std::shared_ptr<ProducerState<T>> result = std::move(promise.result);
            Outcome<T> outcome = std::move(promise.outcome);
            Work* const work = promise.work;
            const bool hooked = promise.hooked;
            coroutine.destroy(); // also destroys `this`
            Work own;
            Work& loop = work ? *work : own;
            if (hooked)
                result->end(std::move(outcome), loop);
            else
                publish<T>(result, std::move(outcome), loop);
            own.run();
        }
        void await_resume() const noexcept {}
    };
    End final_suspend() const noexcept { return {}; }

    const Waiter* waiter() const noexcept { return result.get(); }

    void onCancel(std::unique_ptr<CancelHook> hook) {
        hooked = true;
        result->onCancel(std::move(hook));
    }

    /// From now on, the result waits for `source`.
    template <class U>
    void waitFor(const StatePtr<U>& source) {
        result->waitFor(upstreamOf(source));
    }

private:
    OutcomeRoom<T> room;
    Outcome<T> outcome;
    std::shared_ptr<ProducerState<T>> result;
    bool hooked = false;
};

/// The promise type of a coroutine that returns a Future<void>, which a static_assert of Future rejects.
template <class T>
struct NoPromise {
    Future<T> get_return_object();
    std::suspend_never initial_suspend() noexcept;
    std::suspend_never final_suspend() noexcept;
    void return_void();
    void unhandled_exception();
};

/// Whether a coroutine with these parameters, of which the first is its object, is a provider's handle().
template <class... Args>
struct IsHandle : std::false_type {};

template <class Provider>
struct IsHandle<Provider&, std::unique_ptr<Message>&&, Address&&, std::shared_ptr<Context>&&>
    : std::is_base_of<ServiceProvider, Provider> {};

} // namespace detail
} // namespace connector
