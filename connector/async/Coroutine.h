#pragma once

#include <connector/async/detail/ResultState.h>

#if __cplusplus < 202002L || !defined(__cpp_impl_coroutine)
#error "connector/async/Coroutine.h needs C++20 and its coroutines: -std=c++20"
#else

#include <coroutine>
#include <exception>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace connector {
namespace detail {

/// What every coroutine with a future has, whatever it returns.
struct CoroutineBase {
    /// The work of the loop that resumed the coroutine, so that a coroutine that ends or waits returns to that loop.
    /// Null once it is suspended again: the loop isn't below it on the stack any more.
    Work* work = nullptr;
};

/// What `co_await awaitable` asks: the awaitable itself, or what its operator co_await gives.
template <class Awaitable>
decltype(auto) awaiterOf(Awaitable&& awaitable) {
    if constexpr (requires { std::forward<Awaitable>(awaitable).operator co_await(); })
        return std::forward<Awaitable>(awaitable).operator co_await();
    else if constexpr (requires { operator co_await(std::forward<Awaitable>(awaitable)); })
        return operator co_await(std::forward<Awaitable>(awaitable));
    else
        return std::forward<Awaitable>(awaitable);
}

/// A co_await of something else in a coroutine with a future. `Asked` is an awaiter, or a reference to one.
template <class Asked>
struct Suspension {
    Asked awaiter;
    CoroutineBase& base;

    decltype(auto) await_ready() { return awaiter.await_ready(); }
    // Not inlined, for the reason given at End. What isn't suspended is still run by the loop.
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

/// The link of a coroutine that is suspended in a co_await.
template <class T>
class Resume {
public:
    Resume(std::coroutine_handle<> coroutine, Future<T>& arrived, CoroutineBase* base, const Waiter* result) noexcept
        : coroutine(coroutine), arrived(arrived), base(base), result(result) {}

    void operator()(Future<T>&& source, bool /*cancelled*/, Work& work) {
        arrived = std::move(source);
        if (base)
            base->work = &work;
        coroutine.resume(); // the coroutine may be gone after this
    }
    const Waiter* waiter() const noexcept { return result; }

private:
    const std::coroutine_handle<> coroutine;
    Future<T>& arrived;
    CoroutineBase* const base;
    const Waiter* const result;
};

template <class T>
class Awaiter;

template <class T>
class CoroutinePromise : public CoroutineBase {
public:
    CoroutinePromise() : result(std::make_shared<ResultState<T>>()) {}

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

    /// The end: the frame goes first, then the future is resolved. Not inlined, nor is any await_suspend() that goes on
    /// when the coroutine may be gone: the compiler could put its variables into the frame.
    struct End {
        bool await_ready() const noexcept { return false; }
        [[gnu::noinline]] void await_suspend(std::coroutine_handle<CoroutinePromise> coroutine) const noexcept {
            CoroutinePromise& promise = coroutine.promise();
            const std::shared_ptr<ResultState<T>> result = std::move(promise.result);
            Outcome<T> outcome = std::move(promise.outcome);
            Work* const work = promise.work;
            coroutine.destroy(); // and `this` with it
            if (work)
                return publish(result, std::move(outcome), *work);
            Work own;
            publish(result, std::move(outcome), own);
            own.run();
        }
        void await_resume() const noexcept {}
    };
    End final_suspend() const noexcept { return {}; }

    const Waiter* waiter() const noexcept { return result.get(); }

    /// From now on waits for `source`.
    template <class U>
    void waitFor(const StatePtr<U>& source) {
        result->waitFor(upstreamOf(source));
    }

private:
    OutcomeRoom<T> room;
    Outcome<T> outcome;
    std::shared_ptr<ResultState<T>> result;
};

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
            return true; // the coroutine may have been resumed, and be gone, by now
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
    // Invalid while the coroutine is suspended: the state owns the link, and must not be owned by the coroutine in
    // turn.
    Future<T>& future;
};

} // namespace detail

/// Waits for the reply in a coroutine. A function that returns a Future may be a coroutine, and any coroutine may await
/// one:
///
///     Future<std::unique_ptr<Message>> order(std::unique_ptr<Message> message, std::shared_ptr<Context> context) {
///         auto priced = co_await context->handle(std::move(message), Address("price"));
///         co_return co_await context->handle(std::move(priced), Address("ship"));
///     }
///
/// `co_await` gives what get() would give, or throws what get() would throw, without blocking: while the future is
/// pending, the coroutine is suspended. It resumes on the thread that resolves or cancels the future, inside that call
/// and with no lock held. A coroutine begins on its caller's thread; an exception that leaves it is what its future
/// throws; its variables and parameters are destroyed before its future is resolved. A coroutine may co_await any
/// number of times, and coroutines may await each other in a chain of any length, with the stack of one.
///
/// When a coroutine is suspended, its caller continues, and the next line runs on another thread. Hold none of these
/// across a co_await: a lock, or anything else that belongs to a thread; a reference to what the caller owns, such as
/// the rvalue references that ServiceProvider::handle() gets (so that one can't be a coroutine: let it pass them on to
/// a coroutine that takes them by value); `this`, unless the coroutine keeps its object alive.
///
/// Cancelling a coroutine's future cancels it at once, and then what the coroutine waits for, then and later, so that a
/// co_await that would suspend throws "Future has been cancelled."; what the coroutine gives is ignored. A future whose
/// state is destroyed without having been resolved makes its co_await throw "Future state isn't valid!". A coroutine of
/// another type than Future's may await futures too; cancelling it is that type's own affair, and it must not be
/// destroyed while it is suspended.
///
/// Calling a coroutine throws std::bad_alloc if there is no memory for its frame and its outcome; a co_await that
/// suspends allocates once and may throw std::bad_alloc into the coroutine, which still has the future then.
template <class T>
detail::Awaiter<T> operator co_await(Future<T>& future) noexcept {
    return detail::Awaiter<T>(future);
}

/// As for a future with a name. A temporary lives until its co_await is over.
template <class T>
detail::Awaiter<T> operator co_await(Future<T>&& future) noexcept {
    return detail::Awaiter<T>(future);
}

class Address;
class Context;
class Message;
class ServiceProvider;

namespace detail {

/// Whether a coroutine with these parameters, the first being its object, is a provider's handle().
template <class... Args>
struct IsHandle : std::false_type {};

template <class Provider>
struct IsHandle<Provider&, std::unique_ptr<Message>&&, Address&&, std::shared_ptr<Context>&&>
    : std::is_base_of<ServiceProvider, Provider> {};

/// Instead of a promise of nothing, which a static_assert rejects.
template <class T>
struct NoPromise {
    Future<T> get_return_object();
    std::suspend_never initial_suspend() noexcept;
    std::suspend_never final_suspend() noexcept;
    void return_void();
    void unhandled_exception();
};

} // namespace detail

} // namespace connector

template <class T, class... Args>
struct std::coroutine_traits<connector::Future<T>, Args...> {
    static_assert(!connector::detail::IsHandle<Args...>::value,
                  "handle() can't be a coroutine, since what its references refer to may be gone after a co_await: let "
                  "it pass its arguments on to a static coroutine that takes them by value");
    using promise_type =
        std::conditional_t<std::is_void_v<T>, connector::detail::NoPromise<T>, connector::detail::CoroutinePromise<T>>;
};

#endif
