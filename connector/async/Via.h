#pragma once

#include <connector/async/Then.h>
#include <connector/async/detail/Delivery.h>
#include <connector/async/detail/Step.h>

#include <utility>

namespace connector {

/// Chooses where the next continuation of `future` runs: on `executor`, never on the thread that resolves the future.
///
///     Future<int> length = connector->handle(...) | via(pool.executor()) | thenValue(lengthOf);
///     auto reply = co_await via(connector->handle(...), pool.executor());
///
/// The continuation is attached first, and when `future` is resolved, a task is submitted that runs it. Only the next
/// continuation is concerned: further ones run on the thread that resolves what they wait for.
///
/// An executor is a copyable handle with a member execute(task) or post(task), or a function that takes a task; pass a
/// thread pool itself as std::ref(pool). Boost.Asio's executors are such handles. The task is called without arguments,
/// on any thread, at any time, also inside the call that submits it; only its first call counts. It can be copied. The
/// executor is copied, and its copy is destroyed after the submission.
///
/// - If the executor throws, the continuation gets its exception, on the thread that resolves `future`. If the executor
///   destroys the task without running it, the continuation is cancelled, on the thread that does so.
/// - When `future` is cancelled, so is the continuation, on the thread that cancels.
/// - Cancelling the continuation's result cancels `future`; while the task waits in the executor, it destroys the
///   continuation at once.
///
/// Give the result to an operation, as above, or to co_await, or convert it to a Future<T>, which is resolved on the
/// executor. If you do neither, or if the operation throws, `future` is dropped. Throws as then(); `future` is then
/// unchanged.
template <class T, class Executor>
auto via(Future<T>&& future, Executor executor) {
    detail::FutureAccess::unclaimed(*detail::FutureAccess::state(future));
    return detail::Via<T, Executor>(std::move(future), std::move(executor));
}

/// The same for `future | via(executor)`.
template <class Executor>
auto via(Executor executor) {
    return detail::Step{[executor = std::move(executor)](auto&& future) mutable {
        return via(std::move(future), std::move(executor));
    }};
}

/// then(), with `function` called on `executor`; see via(). Throws as then(); `future` is then unchanged, and after
/// std::bad_alloc `function` too.
template <class T, class Executor, class F>
auto then(Future<T>&& future, Executor executor, F&& function) {
    auto routed = via(std::move(future), std::move(executor));
    try {
        auto result = then(routed.delivered(), std::forward<F>(function));
        routed.start();
        return result;
    } catch (...) {
        future = routed.release();
        throw;
    }
}

} // namespace connector
