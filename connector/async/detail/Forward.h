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
            publish(result, room.hold([&] { return source.get(); }), work);
    }
    const Waiter* waiter() const noexcept { return result.get(); }

    OutcomeRoom<R> room;
    const std::shared_ptr<ResultState<R>> result;
};

template <class R>
using ForwardLink = LinkTo<R, Forward<R>>;

/// Attaches `forward` to `inner`. The result then waits for `inner` and is cancelled after it.
template <class R>
void forwardFrom(Future<R>&& inner, std::unique_ptr<ForwardLink<R>> forward, Work& work) {
    if (!inner.valid())
        return forward->body(std::move(inner), false, work);
    const StatePtr<R> state = FutureAccess::take(std::move(inner));
    const std::shared_ptr<ResultState<R>> result = forward->body.result;
    result->waitFor(upstreamOf(state));
    switch (attach(state, forward, result.get())) {
    case Attachment::Waiting:
        break;
    case Attachment::Abandoned:
        cancelFrom(state, visitState<R>, result.get(), work);
        break;
    case Attachment::Due:
        work.add(std::move(forward));
        break;
    case Attachment::Orphaned:
        forward->body(Future<R>(nullptr), true, work);
        break;
    case Attachment::Refused:
        publish(result, forward->body.room.holdRefusal(), work);
        break;
    }
}

} // namespace connector::detail
