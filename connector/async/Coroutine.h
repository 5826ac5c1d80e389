#pragma once

#include <connector/async/detail/ResultState.h>

#if (defined(_MSVC_LANG) ? _MSVC_LANG < 202002L : __cplusplus < 202002L) || !defined(__cpp_impl_coroutine)
#error "connector/async/Coroutine.h needs C++20 and its coroutines: -std=c++20"
#else

#include <connector/async/detail/CoroutinePromise.h>

#include <coroutine>
#include <type_traits>

namespace connector {

/// Waits for a reply in a coroutine. A function that returns a Future may be a coroutine, and any coroutine may await a
/// future:
///
///     Future<std::unique_ptr<Message>> order(std::unique_ptr<Message> message, std::shared_ptr<Context> context) {
///         auto priced = co_await context->handle(std::move(message), Address("price"));
///         co_return co_await context->handle(std::move(priced), Address("ship"));
///     }
///
/// `co_await` returns or throws what get() would, without blocking a thread. While the future is pending, the coroutine
/// is suspended. It resumes on the thread that resolves or cancels the future, inside that call, with no lock held.
///
/// A coroutine begins on its caller's thread. An exception that leaves it is its future's exception. Its variables and
/// parameters are destroyed before its future is resolved. A coroutine may co_await any number of times. Coroutines
/// that await each other in a chain of any length need no more stack than one.
///
/// When a coroutine is suspended, its caller continues, and the code after the co_await may run on another thread.
/// Don't hold across a co_await:
///
/// - a lock, or anything else that belongs to a thread;
/// - a reference to an object that the caller owns. The parameters of ServiceProvider::handle() are such references, so
///   handle() can't be a coroutine: let it pass its arguments to a coroutine that takes them by value;
/// - `this`, unless the coroutine keeps its object alive.
///
/// Cancelling a coroutine's future cancels that future at once, then the future that the coroutine waits for. A later
/// co_await of a pending future cancels that one and throws "Future has been cancelled.". The coroutine's value or
/// exception is ignored. A future whose state is destroyed unresolved makes its co_await throw "Future state isn't
/// valid!". A coroutine of another type may also await futures; its type defines how it is cancelled. It must not be
/// destroyed while it is suspended.
///
/// Calling a coroutine throws std::bad_alloc if there is no memory for its frame and its outcome. A co_await that
/// suspends allocates once. If that fails, it throws std::bad_alloc, and the coroutine still has the future.
template <class T>
detail::Awaiter<T> operator co_await(Future<T>& future) noexcept {
    return detail::Awaiter<T>(future);
}

/// The same for a temporary future, which lives until its co_await has ended.
template <class T>
detail::Awaiter<T> operator co_await(Future<T>&& future) noexcept {
    return detail::Awaiter<T>(future);
}

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
