#pragma once

#include <connector/async/detail/ResultState.h>

#include <memory>
#include <utility>

namespace connector::detail {

/// The body of a link that gives a result the outcome of another future of the same type.
template <class R>
class Forward {
public:
    explicit Forward(std::shared_ptr<ResultState<R>> result) : result(std::move(result)) {}

    void operator()(Future<R>&& source, bool cancelled, Work& work) {
        if (cancelled)
            cancelResult(result, work);
        else
            publish(result, room.holdOutcomeOf(std::move(source)), work);
    }
    void refuse(Work& work) { publish(result, room.holdRefusal(), work); }
    const Waiter* waiter() const noexcept { return result.get(); }

    OutcomeRoom<R> room;
    const std::shared_ptr<ResultState<R>> result;
};

template <class R>
using ForwardLink = LinkTo<R, Forward<R>>;

/// Attaches `forward` to `state`, for which its result waits already. Doesn't throw.
template <class R, class Body>
void attachForward(StatePtr<R> state, std::unique_ptr<LinkTo<R, Body>> forward, Work& work) {
    const Waiter* const waiter = forward->waiter();
    switch (attach(state, forward, waiter)) {
    case Attachment::Waiting:
        break;
    case Attachment::Abandoned:
        cancelFrom(state, visitState<R>, waiter, work);
        break;
    case Attachment::Due:
        work.add(std::move(forward));
        break;
    case Attachment::Orphaned:
        forward->body(Future<R>(nullptr), true, work);
        break;
    case Attachment::Refused:
        forward->body.refuse(work);
        break;
    }
}

/// Attaches `forward` to `inner`. The result then waits for `inner` and is cancelled after it.
template <class R>
void forwardFrom(Future<R>&& inner, std::unique_ptr<ForwardLink<R>> forward, Work& work) {
    if (!inner.valid())
        return forward->body(std::move(inner), false, work);
    StatePtr<R> state = FutureAccess::take(std::move(inner));
    forward->body.result->waitFor(upstreamOf(state));
    attachForward(std::move(state), std::move(forward), work);
}

} // namespace connector::detail
