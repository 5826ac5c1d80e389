#pragma once

#include <connector/api/Future.h>

#include <cassert>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::detail {

template <class T>
using StatePtr = std::shared_ptr<SharedFutureState<T>>;

/// The way to the state of a future, and to what a state keeps for the companion.
struct FutureAccess {
    /// Throws std::runtime_error ("Future state isn't valid!") when there is none.
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

    /// What SharedFutureState::get() does before and after it waits. Both are entered with the state's mutex held; the
    /// latter releases it, like get(), when it has taken the value.
    template <class T>
    static void claim(SharedFutureState<T>& state) {
        state.claim();
    }
    template <class T>
    static T takeOutcome(SharedFutureState<T>& state, [[maybe_unused]] const std::unique_lock<std::mutex> lock) {
        assert(lock.owns_lock() && lock.mutex() == &state.mutex);
        return state.take();
    }

    /// `state` as the companion's own kind, or null for any other state.
    template <class T>
    static ResultState<T>* resultState(SharedFutureState<T>& state) noexcept {
        return state.ofResult ? static_cast<ResultState<T>*>(&state) : nullptr;
    }
};

} // namespace connector::detail
