#pragma once

#include <connector/api/Future.h>

#include <memory>
#include <utility>

namespace connector::detail {

template <class T>
using StatePtr = std::shared_ptr<SharedFutureState<T>>;

/// The way to the state behind a future.
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
        Future<T> taken(std::move(future));
        return std::move(taken.state);
    }
};

} // namespace connector::detail
