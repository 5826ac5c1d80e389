#pragma once

#include <connector/async/detail/FutureAccess.h>

#include <atomic>
#include <memory>
#include <utility>

namespace connector::detail {

class Work;
struct Visitor;

/// The outcome of visiting a state in order to cancel it.
enum class Visit {
    Cancelled, ///< it was pending and is cancelled
    Waits,     ///< it is pending, and its source must be cancelled first
    Ended,     ///< it isn't pending, or the visitor doesn't wait for it
    Left,      ///< another call is about to cancel it, or the result that waits for it
};

/// The source of a result, which is cancelled with the result. Held weakly: sources own their links and links own their
/// results, never the reverse. A result that has ended holds none.
struct Upstream {
    using Operation = Visit (*)(const std::shared_ptr<void>& state, Visitor& visitor, Work& work);

    std::weak_ptr<void> state;
    Operation visit = nullptr;
};

/// The base of everything that waits for sources: a result, or the gathering of a whenAll().
class Waiter {
public:
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;
    virtual ~Waiter() = default;

    /// Returns a source that must be cancelled because this waiter was; without a `visit` if there is none left.
    virtual Upstream nextSource() = 0;

protected:
    Waiter() = default;

private:
    friend class Work;

    /// The next waiter in the list of a Work. Belongs to the one call that cancelled this waiter.
    std::shared_ptr<Waiter> next;

public:
    /// Set before the sources are cancelled, and read under the mutex of a source to which a link is attached. The
    /// canceller therefore sees the link, or attach() sees this flag.
    std::atomic<bool> cancelled{false};
};

/// A cancellation that climbs from a result to its sources. `waiter` must be waiting for the visited state; null allows
/// any. A visit that returns Visit::Waits sets `waiter` to the visited state, and `upstream` to its source.
struct Visitor {
    enum class Purpose {
        CancelFromTheTop, ///< cancel the state's source first
        CancelAtOnce,     ///< the state's source has ended
        SourceIsGone,     ///< the state's source was destroyed
    };

    const Waiter* waiter = nullptr;
    Upstream upstream{};
    Purpose purpose = Purpose::CancelFromTheTop;
};

/// Cancels `state`, for which `waiter` waits, if it is pending, and with it its sources and everything that waits for
/// it. Returns whether this call cancelled it; at most one call returns true. Adds the remaining tasks to `work` and
/// runs no host code.
///
/// A function given to then() is destroyed before its result is cancelled. The call therefore climbs from a result to
/// its source, up to the first state that has no source or is cancelled before its sources, and cancels only that one.
/// Its link then cancels the state below, and so on down to `state`. Two kinds of states end the climb:
/// - A state whose source is resolved. Its function runs or is about to run, so the state is cancelled at once.
/// - A state whose source is cancelled or destroyed, and whose link another call has taken. That call destroys the
///   function and cancels the state.
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
            if (result == Visit::Ended) // in the meantime; its waiter may have another source now
                continue;
        }
        return result == Visit::Cancelled;
    }
}

} // namespace connector::detail
