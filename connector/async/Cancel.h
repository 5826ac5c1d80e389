#pragma once

#include <connector/async/detail/ResultState.h>

namespace connector {

/// Gives the reply up: whoever waits for it learns that it was cancelled, and what its producer answers later is
/// ignored. Returns whether it did; false when the future was resolved or cancelled before. Throws std::runtime_error
/// ("Future state isn't valid!") for a future without a state.
///
/// - A get(), getFor() or getUntil() that waits on another thread throws "Future has been cancelled.", and so does one
///   that comes later.
/// - The result of then() or of a coroutine passes the cancellation on to what it waits for at that time, that to what
///   it waits for, and so on up to the producer, who sees it by Promise::cancelled(). The result of whenAll() passes it
///   on to each future that is still pending.
/// - What waits for the cancelled future learns of it at once, on this thread: the function given to then() is
///   destroyed without having run and its result is cancelled as well; whenAll() counts the future as arrived; a
///   coroutine resumes, and its co_await throws "Future has been cancelled.". A continuation that wasn't attached by
///   these is neither run nor dropped; it dies with the state.
///
/// A function or a coroutine that is running already isn't stopped; what it gives is ignored.
///
/// Threads: any, even while another one waits in get(), getFor() or getUntil() of this very future. Takes the mutex of
/// one state at a time, and runs and destroys nothing of the host's under it. Allocates nothing.
template <class T>
bool cancel(Future<T>& future) {
    const detail::StatePtr<T> state = detail::FutureAccess::state(future);
    return detail::cancelState(state);
}

} // namespace connector
