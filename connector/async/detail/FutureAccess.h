#pragma once

#include <connector/api/Future.h>

#include <cassert>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::detail {

template <class T>
using StatePtr = std::shared_ptr<SharedFutureState<T>>;

/// Access to the state of a future and to the private operations of a state.
struct FutureAccess {
    /// Throws std::runtime_error ("Future state isn't valid!") if there is none.
    template <class T>
    static const StatePtr<T>& state(const Future<T>& future) {
        if (!future.valid())
            throwFutureInvalid();
        return future.state;
    }

    /// Leaves `future` invalid.
    template <class T>
    static StatePtr<T> take(Future<T>&& future) noexcept {
        future.invalidate();
        return std::move(future.state);
    }

    /// The steps of SharedFutureState::get() before and after its wait. Both are entered with the state's mutex held;
    /// takeOutcome() releases it when it has taken the value.
    template <class T>
    static void claim(SharedFutureState<T>& state) {
        state.claim();
    }
    template <class T>
    static T takeOutcome(SharedFutureState<T>& state, [[maybe_unused]] const std::unique_lock<std::mutex> lock) {
        assert(lock.owns_lock() && lock.mutex() == &state.mutex);
        return state.take();
    }

    /// Whether a resolved future has an exception. Needs no lock: the status doesn't change any more.
    template <class T>
    static bool failed(const Future<T>& future) noexcept {
        return future.state && future.state->status == FutureStatus::HasException;
    }

    /// Takes the exception of such a future, or the refusal if other code took it through another future of the same
    /// state.
    template <class T>
    static std::exception_ptr takeFailure(const Future<T>& future) noexcept {
        const std::lock_guard<std::mutex> lock(future.state->mutex);
        try {
            future.state->claim();
        } catch (...) {
            return std::current_exception();
        }
        return *future.state->outcome.exception;
    }

    /// The status of a state. Throws if a consumer has its value already, or waits for it. Takes the state's mutex.
    template <class T>
    static FutureStatus unclaimed(SharedFutureState<T>& state) {
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (state.retrieved || state.continuation)
            throwFutureRetrieved();
        return state.status;
    }

    /// Whether an outcome may be stored; see SharedFutureState. Entered with the state's mutex held.
    template <class T>
    static bool acceptsOutcome(const SharedFutureState<T>& state) {
        return state.acceptsOutcome();
    }

    /// `state` as a ResultState, or null if it isn't one.
    template <class T>
    static ResultState<T>* resultState(SharedFutureState<T>& state) noexcept {
        return state.ofResult ? static_cast<ResultState<T>*>(&state) : nullptr;
    }
};

} // namespace connector::detail
