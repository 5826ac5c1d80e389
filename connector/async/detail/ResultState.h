#pragma once

#include <connector/async/detail/Link.h>

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace connector::detail {

/// The state of a future that waits for others.
template <class T>
class ResultState final : public SharedFutureState<T>, public Waiter {
public:
    /// Of then(): waits for `upstream` and is cancelled after it.
    explicit ResultState(Upstream upstream) noexcept
        : SharedFutureState<T>(typename SharedFutureState<T>::OfResult()), cancelledFirst(false),
          upstream(std::move(upstream)) {}

    /// Of a coroutine or whenAll(), which go on when a source is cancelled: cancelled before its sources.
    ResultState() noexcept : SharedFutureState<T>(typename SharedFutureState<T>::OfResult()), cancelledFirst(true) {}

    /// From now on waits for `source`, unless it has ended.
    void waitFor(Upstream source) {
        const std::lock_guard<std::mutex> lock(this->mutex);
        if (this->status != FutureStatus::Pending)
            return;
        std::swap(upstream, source);
        functionRuns.store(false, std::memory_order_relaxed);
    }

    Upstream nextSource() override {
        const std::lock_guard<std::mutex> lock(this->mutex);
        return std::exchange(upstream, {});
    }

    /// Constant.
    const bool cancelledFirst;

    /// Whether the function has begun that resolves this; set without the mutex by the thread that runs it.
    std::atomic<bool> functionRuns{false};

    /// Guarded by `mutex`.
    Upstream upstream;
};

/// Moves a pending state to `status`. The link that waited for it is due; else wakes its waiter, or runs a continuation
/// of another kind. Entered with the lock on the state's mutex, returns with it released.
template <class T>
[[gnu::always_inline]] inline void settle(const StatePtr<T>& state, FutureStatus status,
                                          std::unique_lock<std::mutex>& lock, Work& work) {
    state->status = status;
    std::unique_ptr<ChainLink> due = detachLink(state, lock);
    if (!due)
        return state->notifyResolved(lock);
    lock.unlock();
    work.add(std::move(due));
}

/// Cancels a pending result whose source was cancelled or destroyed.
template <class T>
void cancelResult(const std::shared_ptr<ResultState<T>>& result, Work& work) {
    Upstream ended;
    std::unique_lock<std::mutex> lock(result->mutex);
    std::swap(ended, result->upstream);
    if (result->status != FutureStatus::Pending)
        return;
    result->cancelled.store(true, std::memory_order_relaxed);
    settle<T>(result, FutureStatus::Cancelled, lock, work);
}

/// One step of cancelFrom().
template <class T>
Visit visitState(const std::shared_ptr<void>& target, Visitor& visitor, Work& work) {
    using Purpose = Visitor::Purpose;
    const StatePtr<T> state = std::static_pointer_cast<SharedFutureState<T>>(target);
    std::unique_lock<std::mutex> lock(state->mutex);
    if (visitor.purpose == Purpose::CancelFromTheTop && visitor.waiter) {
        const auto* const link = dynamic_cast<const Link<T>*>(state->continuation.get());
        const bool cancelled = state->status == FutureStatus::Cancelled;
        if (!link || link->waiter() != visitor.waiter)
            return cancelled ? Visit::Left : Visit::Ended;
        if (cancelled) { // by other code, which leaves the link in its slot
            work.add(detachLink(state, lock));
            return Visit::Cancelled;
        }
    }
    if (state->status != FutureStatus::Pending)
        return Visit::Ended;
    if (ResultState<T>* const result = FutureAccess::resultState(*state)) {
        if (visitor.purpose == Purpose::CancelFromTheTop && !result->cancelledFirst) {
            visitor.waiter = result;
            visitor.upstream = result->upstream;
            return Visit::Waits;
        }
        // Its producer has destroyed the source unresolved, or else its function has, after it took the reply. If the
        // latter can't be seen yet, the mark still keeps the cancellation from being lost.
        result->cancelled.store(true, std::memory_order_relaxed);
        if (visitor.purpose == Purpose::SourceIsGone && !result->functionRuns.load(std::memory_order_relaxed))
            return Visit::Left;
        work.add(std::shared_ptr<Waiter>(state, result));
    }
    settle(state, FutureStatus::Cancelled, lock, work);
    return Visit::Cancelled;
}

/// `source` as something to wait for.
template <class T>
Upstream upstreamOf(const StatePtr<T>& source) {
    return {std::weak_ptr<void>(source), visitState<T>};
}

/// cancelFrom() in a loop of its own.
template <class T>
bool cancelState(const StatePtr<T>& state, const Waiter* waiter = nullptr) {
    Work work;
    const bool cancelled = cancelFrom(state, visitState<T>, waiter, work);
    work.run();
    return cancelled;
}

/// Room for one object of the heap, allocated before it is needed.
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

    /// Deletes what a cell was filled with: as it was allocated, without operators of T's own.
    struct Delete {
        void operator()(T* filled) const noexcept { ::delete filled; }
    };
    using Filled = std::unique_ptr<T, Delete>;

    /// Makes the object from what `make` returns. If that throws, the room is still there.
    template <class Make>
    Filled fill(Make&& make) {
        T* const filled = ::new (static_cast<void*>(room)) T(std::forward<Make>(make)());
        room = nullptr;
        return Filled(filled);
    }

private:
    T* room;
};

/// A value or an exception, in the cell that a state takes over.
template <class T>
struct Outcome {
    typename Cell<T>::Filled value;
    typename Cell<std::exception_ptr>::Filled exception;
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

    /// What get() throws of a future that is refused.
    Outcome<T> holdRefusal() noexcept {
        return hold([]() -> T { throwFutureRetrieved(); });
    }

private:
    Cell<T> value;
    Cell<std::exception_ptr> exception;
};

/// Resolves a pending `result` with `outcome`; the link that waited for it is due. Does what setValue() and
/// setException() do, but for the allocation and for running that link. A cancelled result ignores the outcome, which
/// is then destroyed after the mutex is released.
template <class T>
void publish(const std::shared_ptr<ResultState<T>>& result, Outcome<T> outcome, Work& work) {
    Upstream ended;
    std::unique_lock<std::mutex> lock(result->mutex);
    std::swap(ended, result->upstream);
    if (result->status != FutureStatus::Pending)
        return;
    FutureStatus status = FutureStatus::Cancelled;
    if (!result->cancelled.load(std::memory_order_relaxed)) {
        if (outcome.value) {
            result->outcome.value = outcome.value.release();
            status = FutureStatus::HasValue;
        } else {
            result->outcome.exception = outcome.exception.release();
            status = FutureStatus::HasException;
        }
    }
    settle<T>(result, status, lock, work);
}

} // namespace connector::detail
