#pragma once

#include <connector/async/detail/ResultState.h>

#include <memory>
#include <utility>

namespace connector::detail {

/// Attaches a link with a `Body` to `future`: the body is made of `function` and the result, which it resolves or
/// cancels. Takes `future` over; if it throws, `future` is unchanged, and `function` too if the body's constructor
/// allocates before it takes the function.
template <class Body, class R, class T, class F>
Future<R> continueWith(Future<T>&& future, F&& function) {
    const StatePtr<T>& state = FutureAccess::state(future);
    auto result = std::make_shared<ResultState<R>>(upstreamOf(state));
    auto link = std::make_unique<LinkTo<T, Body>>(std::forward<F>(function), result);
    const Attachment attachment = attach(state, link);
    if (attachment == Attachment::Refused)
        throwFutureRetrieved();
    FutureAccess::take(std::move(future));
    Work work;
    if (attachment == Attachment::Due)
        work.add(std::move(link));
    else if (attachment == Attachment::Orphaned)
        link->body(Future<T>(nullptr), true, work);
    work.run();
    return Future<R>(std::move(result));
}

} // namespace connector::detail
