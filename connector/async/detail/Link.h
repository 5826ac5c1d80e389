#pragma once

#include <connector/async/detail/FutureAccess.h>

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::detail {

class Work;

/// A continuation that may be followed by others: what it resolves or cancels may have a continuation too. It adds that
/// one to the work of the loop that runs it instead of running it itself, so that a chain of any length runs in a loop
/// and not down the stack. Nothing else is put off by that, because a link does it as the last thing.
class ChainLink {
public:
    ChainLink(const ChainLink&) = delete;
    ChainLink& operator=(const ChainLink&) = delete;
    virtual ~ChainLink() = default;

    /// Runs a link that is due, and adds what becomes due by it to `work`.
    virtual void run(Work& work) = 0;

protected:
    ChainLink() = default;

private:
    friend class Work;

    /// What the same loop runs after this link.
    std::unique_ptr<ChainLink> next;
};

/// What came of visiting a state in order to cancel it.
enum class Visit {
    Cancelled, ///< it was pending and is cancelled
    Waits,     ///< it is pending, and what it waits for is to be cancelled first
    Ended,     ///< it isn't pending, or isn't what the visitor waits for
    Left,      ///< it is pending, and another call is about to cancel it
};

struct Visitor;

/// What a result waits for, to be cancelled with it. Held weakly: the sources own their links and those own the result,
/// never the other way round. Nothing is held once the result has ended.
struct Upstream {
    using Operation = Visit (*)(const std::shared_ptr<void>& state, Visitor& visitor, Work& work);

    std::weak_ptr<void> state;
    Operation visit = nullptr;
};

/// What waits for sources: a result, or what a whenAll() gathers.
class Waiter {
public:
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;
    virtual ~Waiter() = default;

    /// Gives a source that is to be cancelled because this was; without a `visit` when there is none left.
    virtual Upstream nextSource() = 0;

protected:
    Waiter() = default;

private:
    friend class Work;

    /// Belongs to the one call that cancelled this.
    std::shared_ptr<Waiter> next;

public:
    /// Set before what this waits for is cancelled, and read under the mutex of a source to which a link is attached:
    /// of a source that is to be cancelled, either the canceller sees the link or attach() sees this.
    std::atomic<bool> cancelled{false};
};

/// A cancellation on its way up. `waiter` is what has to wait for the state that is visited, null if anything may; a
/// visit that gives Visit::Waits replaces it by that state and says what that waits for.
struct Visitor {
    enum class Purpose {
        CancelFromTheTop, ///< as Visit::Waits says
        CancelAtOnce,     ///< what the state waits for has ended
        SourceIsGone,     ///< what the state waits for was destroyed
    };

    const Waiter* waiter = nullptr;
    Upstream upstream{};
    Purpose purpose = Purpose::CancelFromTheTop;
};

/// What one loop has to do: links that are due, and what was cancelled, whose sources are to be cancelled as well.
/// Both are lists threaded through their elements, so adding allocates nothing.
class Work {
public:
    Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    ~Work() = default;

    void add(std::unique_ptr<ChainLink> link) noexcept {
        link->next = std::move(links);
        links = std::move(link);
    }

    /// `waiter` was cancelled by the caller, which adds it once.
    void add(std::shared_ptr<Waiter> waiter) noexcept {
        waiter->next = std::move(waiters);
        waiters = std::move(waiter);
    }

    /// Does it all. Throws what a continuation of another kind throws, after that.
    void run() {
        if (links || waiters)
            runAll();
    }

private:
    // Not in line: mostly there is nothing to do.
    [[gnu::noinline]] void runAll() {
        std::exception_ptr thrown;
        do
            try {
                if (links)
                    runLink();
                else
                    cancelSource();
            } catch (...) {
                thrown = std::current_exception();
            }
        while (links || waiters);
        if (thrown)
            std::rethrow_exception(thrown);
    }

    void runLink() {
        const std::unique_ptr<ChainLink> link = std::move(links);
        links = std::move(link->next);
        link->run(*this);
    }

    void cancelSource();

    std::unique_ptr<ChainLink> links;
    std::shared_ptr<Waiter> waiters;
};

/// Cancels `state`, for which `waiter` waits, if it is pending; with all that waits for it and all that it waits for.
/// Returns whether this call did so, which is true of one call at most. `work` receives what is left to do; no code of
/// the host runs here.
///
/// A function given to then() is destroyed before its result is cancelled. So this climbs from a result to what it
/// waits for, up to the first state that waits for nothing or that is cancelled at once, and cancels only that one: its
/// link then cancels the next state below, and so on down to `state`. Where the climb meets
/// - a state whose source is resolved, its function is running or about to run: the state is cancelled at once;
/// - a state whose source is cancelled or destroyed, but whose link another call has taken: that call destroys the
///   function and cancels the state, which is left to it.
inline bool cancelFrom(const std::shared_ptr<void>& state, Upstream::Operation visit, const Waiter* waiter,
                       Work& work) {
    struct Reached {
        std::shared_ptr<void> state;
        Upstream::Operation visit = nullptr;
    };
    for (;;) {
        Visitor visitor{waiter};
        Reached below;
        Reached at{state, visit};
        Visit result = at.visit(at.state, visitor, work);
        while (result == Visit::Waits) {
            below = std::exchange(at, Reached{visitor.upstream.state.lock(), visitor.upstream.visit});
            if (!at.state)
                break;
            result = at.visit(at.state, visitor, work);
        }
        if (below.state && (result == Visit::Waits || result == Visit::Ended)) {
            visitor.purpose = at.state ? Visitor::Purpose::CancelAtOnce : Visitor::Purpose::SourceIsGone;
            result = below.visit(below.state, visitor, work);
            if (result == Visit::Ended) // meanwhile; what waits for it may have another source now
                continue;
        }
        return result == Visit::Cancelled;
    }
}

inline void Work::cancelSource() {
    const Waiter* const waiter = waiters.get();
    const Upstream source = waiters->nextSource();
    if (!source.visit) {
        const std::shared_ptr<Waiter> done = std::move(waiters);
        waiters = std::move(done->next);
    } else if (const std::shared_ptr<void> state = source.state.lock()) {
        cancelFrom(state, source.visit, waiter, *this);
    }
}

/// A link that waits for a T. It belongs to the state in whose slot it waits, and once it is due, to the loop that runs
/// it. The fields are its owner's, so nothing guards them.
template <class T>
class Link : public FutureContinuation<T>, public ChainLink {
public:
    /// What waits through this link; null for a coroutine of another type.
    virtual const Waiter* waiter() const noexcept = 0;

    /// Once it is due and unless the core runs it: what it waited for, and whether that was cancelled.
    StatePtr<T> source;
    bool sourceCancelled = false;

    /// Whether it is in a slot.
    bool waiting = false;
};

/// A link that runs `body`, once: when its source is resolved or cancelled, or with an invalid future when its source
/// was destroyed before that. The body gets the future, whether it was cancelled (or destroyed), and the work of the
/// loop.
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
        this->waiting = false;
        begin(std::move(future), false);
    }

    void run(Work& work) override { body(Future<T>(std::move(this->source)), this->sourceCancelled, work); }

    const Waiter* waiter() const noexcept override { return body.waiter(); }

    Body body;

private:
    void begin(Future<T>&& future, bool cancelled) {
        Work work;
        body(std::move(future), cancelled, work);
        work.run();
    }
};

enum class Attachment {
    Waiting,   ///< the link is in the state's slot
    Abandoned, ///< so it is, but `waiter` was cancelled: the caller cancels the state
    Due,       ///< the state was resolved or cancelled already; the caller still owns the link, and runs it
    Orphaned,  ///< nobody else has the state, so that nobody can resolve it; the caller still owns the link
    Refused,   ///< the state's outcome belongs to other code; the caller still owns the link
};

/// Attaches `link` to `state`. Takes the state's mutex. Give a `waiter` that other code may have cancelled.
template <class T, class SomeLink>
[[nodiscard]] Attachment attach(const StatePtr<T>& state, std::unique_ptr<SomeLink>& link,
                                const Waiter* waiter = nullptr) {
    const std::lock_guard<std::mutex> lock(state->mutex);
    if (state->retrieved || state->continuation)
        return Attachment::Refused;
    if (state->status == FutureStatus::Pending) {
        // In the slot, the link would be destroyed as soon as the caller drops the state, and run down the stack.
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
