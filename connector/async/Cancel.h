#pragma once

#include <connector/async/detail/ResultState.h>

namespace connector {

/// Cancels a reply: its consumers get "Future has been cancelled.", and its producer's answer is ignored. Returns
/// whether this call cancelled it: false if the future was resolved or cancelled before, or another call is cancelling
/// it. Throws std::runtime_error ("Future state isn't valid!") for a future without a state.
///
///     if (!getFor(reply, std::chrono::seconds(1)))
///         cancel(reply);
///
/// - A get(), getFor() or getUntil() that waits on another thread throws "Future has been cancelled.", and so does each
///   later call.
/// - Upwards: cancelling the result of then() or of a coroutine cancels the future that it waits for at that time, and
///   so on up to the producer, which sees it in Promise::cancelled(). Cancelling the result of whenAll() cancels each
///   future that it still waits for. A future that then(), whenAll() or co_await refused isn't cancelled.
/// - Downwards: everything that waits for the cancelled future is cancelled or continued at once, on this thread. A
///   function given to then() is destroyed without being called, and then its result is cancelled. A whenAll() counts
///   the future as arrived. A coroutine resumes, and its co_await throws "Future has been cancelled.". A continuation
///   of another kind isn't run; it is destroyed with the state.
/// - Order: the result of then() is cancelled after its source, and the function is destroyed by then. The results of
///   whenAll(), of within() and of a coroutine are cancelled before their sources.
///
/// A function or coroutine that is running, or about to run because its reply has arrived, isn't stopped. Its result is
/// cancelled at once, and its value or exception is ignored. If two calls cancel the same future, one of them does it;
/// it may still be destroying a function when the other one returns.
///
/// Threads: any, even while another one waits in get(), getFor() or getUntil() of the same future. Takes the mutex of
/// one state at a time. No host code runs under it, including destructors. Allocates nothing. Needs no more stack for a
/// chain of any length than for one link.
template <class T>
bool cancel(Future<T>& future) {
    const detail::StatePtr<T> state = detail::FutureAccess::state(future);
    return detail::cancelState(state);
}

} // namespace connector
