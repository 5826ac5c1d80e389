#pragma once

#include <connector/async/detail/FutureAccess.h>

#include <memory>
#include <mutex>
#include <utility>

namespace connector::detail {

/// A continuation that may be followed by others: what it resolves may have a continuation in turn. It hands that one
/// back to whoever runs it instead of running it itself, so that a chain of any length runs in a loop and not down the
/// stack. Nothing else is put off by that, because a link hands the next one back as the last thing it does.
class ChainLink {
public:
    ChainLink(const ChainLink&) = delete;
    ChainLink& operator=(const ChainLink&) = delete;
    virtual ~ChainLink() = default;

    /// Runs a link that is due. Returns the next one that is due, or null.
    virtual std::unique_ptr<ChainLink> run() = 0;

protected:
    ChainLink() = default;
};

inline void runChain(std::unique_ptr<ChainLink> due) {
    while (due)
        due = due->run();
}

/// A link that waits for a T. It belongs to the state in whose slot it waits, and once it is due, to whoever runs it.
/// The fields are its owner's, so nothing guards them.
template <class T>
class Link : public FutureContinuation<T>, public ChainLink {
public:
    /// Once it is due and unless the core runs it: what it waited for, and whether that was cancelled.
    StatePtr<T> source;
    bool sourceCancelled = false;

    /// Whether it is in a slot.
    bool waiting = false;
};

/// A link that runs `body`, once: when its source is resolved or cancelled, or with an invalid future when its source
/// died before that. The body gets the future and whether it was cancelled (or died), and returns the next link that is
/// due.
template <class T, class Body>
class LinkTo final : public Link<T> {
public:
    template <class... Args>
    explicit LinkTo(Args&&... args) : body(std::forward<Args>(args)...) {}

    ~LinkTo() override {
        if (this->waiting)
            runChain(body(Future<T>(nullptr), true));
    }

    void invoke(Future<T>&& future) override {
        this->waiting = false;
        runChain(body(std::move(future), false));
    }

    std::unique_ptr<ChainLink> run() override {
        return body(Future<T>(std::move(this->source)), this->sourceCancelled);
    }

    Body body;
};

enum class Attachment {
    Waiting, ///< the link is in the state's slot
    Due,     ///< the state was resolved or cancelled already; the caller still owns the link, and runs it
    Refused, ///< the state's outcome is spoken for; the caller still owns the link
};

/// Attaches `link` to `state`. Takes the state's mutex.
template <class T, class SomeLink>
[[nodiscard]] Attachment attach(const StatePtr<T>& state, std::unique_ptr<SomeLink>& link) {
    const std::lock_guard<std::mutex> lock(state->mutex);
    if (state->retrieved || state->continuation)
        return Attachment::Refused;
    if (state->status == FutureStatus::Pending) {
        link->waiting = true;
        state->continuation = std::move(link);
        return Attachment::Waiting;
    }
    link->source = state;
    link->sourceCancelled = state->status == FutureStatus::Cancelled;
    return Attachment::Due;
}

/// Takes the link that waits for `state` out of its slot, due. Null when there is none; a continuation of another kind
/// stays where it is. Entered with the lock on the state's mutex.
template <class T>
std::unique_ptr<ChainLink> detachLink(const StatePtr<T>& state, const std::unique_lock<std::mutex>&) {
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
