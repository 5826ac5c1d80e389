#pragma once

#include <connector/async/detail/Work.h>

#include <atomic>
#include <cassert>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::detail {

/// A link that waits for a T. The state owns it while it is in the state's slot; the loop that runs it owns it once it
/// is due. Only its owner uses the fields, so nothing guards them.
template <class T>
class Link : public FutureContinuation<T>, public ChainLink {
public:
    /// The waiter that waits through this link; null for a coroutine of another type.
    virtual const Waiter* waiter() const noexcept = 0;

    /// Set for run(), not for invoke(): the state that it waited for, and whether that was cancelled.
    StatePtr<T> source;
    bool sourceCancelled = false;

    /// Whether it is in a slot.
    bool waiting = false;
};

/// A link that runs `body` once: when its source is resolved or cancelled, or, with an invalid future, when its source
/// is destroyed before that. The body receives the future, whether its state was cancelled or destroyed, and the work
/// of the loop.
template <class T, class Body>
class LinkTo final : public Link<T> {
public:
    template <class... Args>
    explicit LinkTo(Args&&... args) : body(std::forward<Args>(args)...) {}

    ~LinkTo() override {
        if (this->waiting)
            begin(Future<T>(nullptr), true);
    }

    void invoke(Future<T>&& future) override {
        assert(this->waiting);
        this->waiting = false;
        begin(std::move(future), false);
    }

    void run(Work& work) override {
        assert(!this->waiting && this->source);
        body(Future<T>(std::move(this->source)), this->sourceCancelled, work);
    }

    const Waiter* waiter() const noexcept override { return body.waiter(); }

    Body body;

private:
    void begin(Future<T>&& future, bool cancelled) {
        Work work;
        body(std::move(future), cancelled, work);
        work.run();
    }
};

/// The outcome of attaching a link to a state.
enum class Attachment {
    Waiting,   ///< the link is in the state's slot
    Abandoned, ///< the same, but `waiter` was cancelled: the caller must cancel the state
    Due,       ///< the state is already resolved or cancelled; the caller still owns the link and must run it
    Orphaned,  ///< the caller's pointer is the last one to the pending state; the caller still owns the link
    Refused,   ///< the state's value is already claimed; the caller still owns the link
};

/// Attaches `link` to `state`. Takes the state's mutex. Pass a `waiter` that other code may have cancelled.
template <class T, class SomeLink>
[[nodiscard]] Attachment attach(const StatePtr<T>& state, std::unique_ptr<SomeLink>& link,
                                const Waiter* waiter = nullptr) {
    assert(link && !link->waiting);
    const std::lock_guard<std::mutex> lock(state->mutex);
    if (state->retrieved || state->continuation)
        return Attachment::Refused;
    if (state->status == FutureStatus::Pending) {
        // In the slot, the link would be destroyed with the caller's pointer, and would run in a nested call.
        if (state.use_count() == 1)
            return Attachment::Orphaned;
        const bool abandoned = waiter && waiter->cancelled.load(std::memory_order_relaxed);
        link->waiting = true;
        state->continuation = std::move(link);
        return abandoned ? Attachment::Abandoned : Attachment::Waiting;
    }
    link->source = state;
    link->sourceCancelled = state->status == FutureStatus::Cancelled;
    return Attachment::Due;
}

/// Takes the link out of the slot of `state`; it is then due. Returns null if there is none. A continuation that isn't
/// a link stays in the slot. Entered with the lock on the state's mutex.
template <class T>
std::unique_ptr<ChainLink> detachLink(const StatePtr<T>& state,
                                      [[maybe_unused]] const std::unique_lock<std::mutex>& lock) {
    assert(lock.owns_lock() && lock.mutex() == &state->mutex && state->status != FutureStatus::Pending);
    auto* const link = dynamic_cast<Link<T>*>(state->continuation.get());
    if (!link)
        return nullptr;
    static_cast<void>(state->continuation.release());
    link->waiting = false;
    link->source = state;
    link->sourceCancelled = state->status == FutureStatus::Cancelled;
    return std::unique_ptr<ChainLink>(link);
}

} // namespace connector::detail
