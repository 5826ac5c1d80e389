#pragma once

#include <connector/async/detail/ResultState.h>

namespace connector {

/// Gives the reply up: its consumers learn that it was cancelled, and what its producer answers later is ignored.
/// Returns whether this call did it; false when the future was resolved before, or cancelled, or is being cancelled by
/// another call. Throws std::runtime_error ("Future state isn't valid!") for a future without a state.
///
/// - A get(), getFor() or getUntil() that waits on another thread throws "Future has been cancelled.", and so does one
///   that comes later.
/// - The result of then() or of a coroutine passes the cancellation on to what it waits for at that time, that to what
///   it waits for, and so on up to the producer, who sees it by Promise::cancelled(). The result of whenAll() passes it
///   on to each future that it still waits for. A future that then(), whenAll() or co_await refused isn't theirs, and
///   is left alone.
/// - What waits for the cancelled future learns of it at once, on this thread: the function given to then() is
///   destroyed without having run, and after that its result is cancelled as well; whenAll() counts the future as
///   arrived; a coroutine resumes, and its co_await throws "Future has been cancelled.". A continuation that wasn't
///   attached by these is neither run nor dropped; it is destroyed with the state.
/// - So the result of then() is cancelled after what it waits for, and a consumer that finds it cancelled may rely on
///   the function's being destroyed. The results of whenAll() and of a coroutine are cancelled before what they wait
///   for.
///
/// A function or a coroutine that is running already, or about to run since its reply is there, isn't stopped: its
/// result is cancelled at once, and what it gives is ignored. When two calls meet, one of them cancels the result; it
/// may still be at it, destroying a function, when the other returns.
///
/// Threads: any, even while another one waits in get(), getFor() or getUntil() of this very future. Takes the mutex of
/// one state at a time; no host code runs under it, destructors included. Allocates nothing. Needs the stack of one
/// link, whatever waits for what.
template <class T>
bool cancel(Future<T>& future) {
    const detail::StatePtr<T> state = detail::FutureAccess::state(future);
    return detail::cancelState(state);
}

} // namespace connector
