#pragma once

#include <connector/api/Future.h>

#include <cassert>
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

    /// `state` as a ResultState, or null if it isn't one.
    template <class T>
    static ResultState<T>* resultState(SharedFutureState<T>& state) noexcept {
        return state.ofResult ? static_cast<ResultState<T>*>(&state) : nullptr;
    }
};

} // namespace connector::detail
