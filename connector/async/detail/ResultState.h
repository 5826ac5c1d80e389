#pragma once

#include <connector/async/detail/Link.h>
#include <connector/async/detail/OutcomeRoom.h>

#include <atomic>
#include <cassert>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::detail {

/// The state of a future that waits for other futures: the result of then(), of whenAll() or of a coroutine.
template <class T>
class ResultState : public SharedFutureState<T>, public Waiter {
public:
    /// The result of then(): waits for `upstream` and is cancelled after it.
    explicit ResultState(Upstream upstream) noexcept
        : SharedFutureState<T>(typename SharedFutureState<T>::OfResult()), cancelledFirst(false),
          upstream(std::move(upstream)) {}

    /// The result of whenAll() or of a coroutine, which continue when a source is cancelled, and of what has a timer:
    /// cancelled before its sources.
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

    /// Whether the function that resolves this state has begun. Set without the mutex, by the thread that runs it.
    std::atomic<bool> functionRuns{false};

    /// Guarded by `mutex`.
    Upstream upstream;
};

/// Changes a pending state to `status`. Makes its link due. Without a link, runs a continuation of another kind, or
/// wakes a blocked consumer and yields. Entered with the lock on the state's mutex; returns with it released.
template <class T>
[[gnu::always_inline]] inline void settle(const StatePtr<T>& state, FutureStatus status,
                                          std::unique_lock<std::mutex>& lock, Work& work) {
    assert(lock.owns_lock() && state->status == FutureStatus::Pending && status != FutureStatus::Pending);
    state->status = status;
    std::unique_ptr<ChainLink> due = detachLink(state, lock);
    if (!due && (state->continuation || state->retrieved))
        return state->notifyResolved(lock);
    lock.unlock();
    if (due)
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
        // Since it was visited, it may have begun to wait for another source, which another call may be cancelling.
        const std::weak_ptr<void>& ended = visitor.upstream.state;
        if (visitor.purpose != Purpose::CancelFromTheTop &&
            (ended.owner_before(result->upstream.state) || result->upstream.state.owner_before(ended)))
            return Visit::Ended;
        // A source can be destroyed by its producer, unresolved, or by the function, which took the reply. This thread
        // may not see yet that the function runs; the flag records the cancellation in any case.
        result->cancelled.store(true, std::memory_order_relaxed);
        if (visitor.purpose == Purpose::SourceIsGone && !result->functionRuns.load(std::memory_order_relaxed))
            return Visit::Left;
        work.add(std::shared_ptr<Waiter>(state, result));
    }
    settle(state, FutureStatus::Cancelled, lock, work);
    return Visit::Cancelled;
}

/// `source` as the source of a result.
template <class T>
Upstream upstreamOf(const StatePtr<T>& source) {
    return {std::weak_ptr<void>(source), visitState<T>};
}

/// cancelFrom() with a loop of its own.
template <class T>
bool cancelState(const StatePtr<T>& state) {
    Work work;
    const bool cancelled = cancelFrom(state, visitState<T>, nullptr, work);
    work.run();
    return cancelled;
}

/// Resolves a pending `result` with `outcome`. Like setValue() and setException(), but doesn't allocate, and makes the
/// link due instead of running it. A cancelled result ignores the outcome, which is destroyed after the mutex is
/// released; unless `heedsCancellation` is false, so does one whose `cancelled` is set.
template <class T>
void publish(const std::shared_ptr<ResultState<T>>& result, Outcome<T> outcome, Work& work,
             bool heedsCancellation = true) {
    Upstream ended;
    std::unique_lock<std::mutex> lock(result->mutex);
    std::swap(ended, result->upstream);
    if (result->status != FutureStatus::Pending)
        return;
    FutureStatus status = FutureStatus::Cancelled;
    if (!heedsCancellation || !result->cancelled.load(std::memory_order_relaxed)) {
        if (outcome.value) {
            result->outcome.value = outcome.value.release();
            status = FutureStatus::HasValue;
        } else {
            assert(outcome.exception);
            result->outcome.exception = outcome.exception.release();
            status = FutureStatus::HasException;
        }
    }
    settle<T>(result, status, lock, work);
}

} // namespace connector::detail
