#pragma once

#include <connector/async/detail/Link.h>

#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace connector::detail {

/// What a result waits for, to be cancelled with it. Held weakly: the sources own their links and those own the result,
/// never the other way round.
class Upstream {
public:
    /// Cancels what `target` points to and returns what that waited for.
    using Cancel = Upstream (*)(const std::shared_ptr<void>& target);

    Upstream() = default;
    Upstream(std::weak_ptr<void> target, Cancel cancelTarget) noexcept
        : target(std::move(target)), cancelTarget(cancelTarget) {}

    /// Cancels one level; returns the next.
    Upstream cancel() const {
        const std::shared_ptr<void> alive = target.lock();
        return alive ? cancelTarget(alive) : Upstream();
    }

    explicit operator bool() const noexcept { return cancelTarget; }

private:
    std::weak_ptr<void> target;
    Cancel cancelTarget = nullptr;
};

/// The state of a future that waits for others. Told apart from a plain state by `continuationFlag`, which stays set as
/// long as the state is pending.
template <class T>
class ResultState : public SharedFutureState<T> {
public:
    explicit ResultState(Upstream upstream = {}) noexcept : upstream(std::move(upstream)) {
        this->continuationFlag = true;
    }

    /// From now on waits for `source`. False when this state was cancelled, and `source` is to be cancelled too.
    bool waitFor(Upstream source) {
        const std::lock_guard<std::mutex> lock(this->mutex);
        upstream = std::move(source);
        return this->status != FutureStatus::Cancelled;
    }

    /// Guarded by `mutex`.
    Upstream upstream;
};

/// What came of cancelling one state.
struct Cancellation {
    bool done = false;              ///< it was pending and is now cancelled
    Upstream upstream;              ///< what it waited for
    std::unique_ptr<ChainLink> due; ///< what waited for it
};

/// Moves a pending state to Cancelled and wakes its waiter. Takes the state's mutex; the rest is left to the caller.
template <class T>
Cancellation cancelOne(const StatePtr<T>& state) {
    Cancellation result;
    std::unique_lock<std::mutex> lock(state->mutex);
    if (state->status != FutureStatus::Pending)
        return result;
    result.done = true;
    state->status = FutureStatus::Cancelled;
    if (state->continuationFlag)
        result.upstream = std::move(static_cast<ResultState<T>&>(*state).upstream);
    result.due = detachLink(state, lock);
    state->notifyResolved(lock);
    return result;
}

/// `source` as something to wait for.
template <class T>
Upstream upstreamOf(const StatePtr<T>& source) {
    return Upstream(source, [](const std::shared_ptr<void>& target) {
        Cancellation cancelled = cancelOne(std::static_pointer_cast<SharedFutureState<T>>(target));
        runChain(std::move(cancelled.due));
        return std::move(cancelled.upstream);
    });
}

/// Cancels a pending state, with all that waits for it and, level by level, what it waits for itself. Returns whether
/// it was pending.
template <class T>
bool cancelState(const StatePtr<T>& state) {
    Cancellation cancelled = cancelOne(state);
    runChain(std::move(cancelled.due));
    for (Upstream level = std::move(cancelled.upstream); level;)
        level = level.cancel();
    return cancelled.done;
}

/// Room for one object of the heap, allocated before it is needed. What fills it is deleted like any other object, so a
/// T that brings an operator delete of its own can't be held here.
template <class T>
class Cell {
public:
    Cell() : room(std::allocator<T>().allocate(1)) {}
    Cell(const Cell&) = delete;
    Cell& operator=(const Cell&) = delete;
    ~Cell() {
        if (room)
            std::allocator<T>().deallocate(room, 1);
    }

    /// Makes the object from what `make` returns. If that throws, the room is still there.
    template <class Make>
    std::unique_ptr<T> fill(Make&& make) {
        T* const filled = ::new (static_cast<void*>(room)) T(std::forward<Make>(make)());
        room = nullptr;
        return std::unique_ptr<T>(filled);
    }

private:
    T* room;
};

/// A value or an exception, in the cell that a state takes over.
template <class T>
struct Outcome {
    std::unique_ptr<T> value;
    std::unique_ptr<std::exception_ptr> exception;
};

/// Room for an outcome, so that once there is a future that waits for one, it can't be lost for want of memory.
template <class T>
class OutcomeRoom {
public:
    /// What `make` returns or throws.
    template <class Make>
    Outcome<T> hold(Make&& make) noexcept {
        try {
            return {value.fill(std::forward<Make>(make)), nullptr};
        } catch (...) {
            return holdException(std::current_exception());
        }
    }

    Outcome<T> holdException(std::exception_ptr thrown) noexcept {
        return {nullptr, exception.fill([&] { return std::move(thrown); })};
    }

private:
    Cell<T> value;
    Cell<std::exception_ptr> exception;
};

/// Resolves a pending `state` with `outcome` and returns the link that waited for it, due. Does what setValue() and
/// setException() do, but for the allocation and for running that link. A cancelled state ignores the outcome, which
/// then dies here, after the mutex is released.
template <class T>
std::unique_ptr<ChainLink> publish(const StatePtr<T>& state, Outcome<T> outcome) {
    std::unique_lock<std::mutex> lock(state->mutex);
    if (state->status != FutureStatus::Pending)
        return nullptr;
    if (outcome.value) {
        state->outcome.value = outcome.value.release();
        state->status = FutureStatus::HasValue;
    } else {
        state->outcome.exception = outcome.exception.release();
        state->status = FutureStatus::HasException;
    }
    std::unique_ptr<ChainLink> due = detachLink(state, lock);
    if (!due)
        state->notifyResolved(lock);
    return due;
}

} // namespace connector::detail
