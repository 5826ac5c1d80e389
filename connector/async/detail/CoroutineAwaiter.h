#pragma once

#include <connector/async/detail/ResultState.h>

#include <cassert>
#include <coroutine>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace connector::detail {

/// The part of a coroutine with a future that doesn't depend on its result's type.
struct CoroutineBase {
    /// The work of the loop that resumed the coroutine. A coroutine that ends or is suspended adds to it and returns to
    /// that loop. Null while the coroutine is suspended: the loop is then no longer below it on the stack.
    Work* work = nullptr;
};

/// The body of the link of a coroutine that is suspended in a co_await.
template <class T>
class Resume {
public:
    Resume(std::coroutine_handle<> coroutine, Future<T>& arrived, CoroutineBase* base, const Waiter* result) noexcept
        : coroutine(coroutine), arrived(arrived), base(base), result(result) {}

    void operator()(Future<T>&& source, bool /*cancelled*/, Work& work) {
        arrived = std::move(source);
        assert(!base || !base->work);
        if (base)
            base->work = &work;
        coroutine.resume(); // may destroy the coroutine
    }
    const Waiter* waiter() const noexcept { return result; }

private:
    const std::coroutine_handle<> coroutine;
    Future<T>& arrived;
    CoroutineBase* const base;
    const Waiter* const result;
};

/// The awaiter of a future, in a coroutine of any type.
template <class T>
class Awaiter {
public:
    explicit Awaiter(Future<T>& future) noexcept : future(future) {}

    bool await_ready() const {
        if (!future.valid())
            return true;
        const StatePtr<T>& state = FutureAccess::state(future);
        const std::lock_guard<std::mutex> lock(state->mutex);
        return state->status != FutureStatus::Pending;
    }

    // Not inlined, for the reason given at CoroutinePromise::End.
    template <class P>
    [[gnu::noinline]] bool await_suspend(std::coroutine_handle<P> coroutine) {
        constexpr bool ours = std::is_base_of_v<CoroutineBase, P>;
        CoroutineBase* base = nullptr;
        const Waiter* result = nullptr;
        if constexpr (ours) {
            base = &coroutine.promise();
            result = coroutine.promise().waiter();
        }
        auto link = std::make_unique<LinkTo<T, Resume<T>>>(coroutine, future, base, result);
        StatePtr<T> state = FutureAccess::take(std::move(future));
        Work* work = nullptr;
        if constexpr (ours) {
            coroutine.promise().waitFor(state);
            work = std::exchange(base->work, nullptr);
        }
        const Attachment attachment = attach(state, link, result);
        if (attachment == Attachment::Waiting)
            return true; // another thread may already have resumed and destroyed the coroutine
        if (attachment == Attachment::Abandoned) {
            Work own;
            cancelFrom(state, visitState<T>, result, work ? *work : own);
            own.run();
            return true; // as above
        }
        if (base)
            base->work = work;
        if (attachment != Attachment::Orphaned)
            future = Future<T>(std::move(state));
        if (attachment == Attachment::Refused)
            throwFutureRetrieved();
        return false;
    }

    T await_resume() { return future.get(); }

private:
    // Invalid while the coroutine is suspended: the state owns the link, so the coroutine must not own the state.
    Future<T>& future;
};

template <class T, class Executor>
class Via;

/// The awaiter of a via(): suspends the coroutine, also if the future is already resolved.
template <class T, class Executor>
class ViaAwaiter {
public:
    explicit ViaAwaiter(Via<T, Executor>&& routed) noexcept : routed(std::move(routed)), future(nullptr) {}

    bool await_ready() const noexcept { return false; }

    template <class P>
    [[gnu::noinline]] bool await_suspend(std::coroutine_handle<P> coroutine) {
        Work own;
        Work* work = &own;
        if constexpr (std::is_base_of_v<CoroutineBase, P>)
            if (coroutine.promise().work)
                work = coroutine.promise().work;
        // Not in the frame, which may be destroyed before start() returns.
        Via<T, Executor> starting = std::move(routed);
        future = starting.delivered();
        const bool suspended = Awaiter<T>(future).await_suspend(coroutine);
        starting.start(*work);
        own.run();
        return suspended; // false if the coroutine's future was cancelled meanwhile
    }

    T await_resume() { return future.get(); }

private:
    Via<T, Executor> routed;
    Future<T> future;
};

template <class T, class Executor>
ViaAwaiter<T, Executor> operator co_await(Via<T, Executor>&& routed) noexcept {
    return ViaAwaiter<T, Executor>(std::move(routed));
}

} // namespace connector::detail
