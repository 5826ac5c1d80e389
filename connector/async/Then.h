#pragma once

#include <connector/async/detail/ResultState.h>

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace connector {

namespace detail {

template <class R>
struct ThenResult {
    using Value = R;
    static constexpr bool isFuture = false;
};

template <class R>
struct ThenResult<Future<R>> {
    using Value = R;
    static constexpr bool isFuture = true;
};

// A future carries an object, so nothing is a std::monostate.
template <>
struct ThenResult<void> {
    using Value = std::monostate;
    static constexpr bool isFuture = false;
};

template <class T, class F>
using ThenResultOf = ThenResult<std::decay_t<std::invoke_result_t<std::decay_t<F>, Future<T>>>>;

/// Passes the outcome of a future on to a result.
template <class R>
class Forward {
public:
    explicit Forward(std::shared_ptr<ResultState<R>> result) : result(std::move(result)) {}

    std::unique_ptr<ChainLink> operator()(Future<R>&& source, bool cancelled) {
        if (cancelled)
            return cancelOne<R>(result).due;
        return publish<R>(result, room.hold([&] { return source.get(); }));
    }

    OutcomeRoom<R> room;
    const std::shared_ptr<ResultState<R>> result;
};

template <class R>
using ForwardLink = LinkTo<R, Forward<R>>;

/// Lets `forward` wait for `inner`, which then is what its result waits for. Returns what is due at once.
template <class R>
std::unique_ptr<ChainLink> forwardFrom(Future<R>&& inner, std::unique_ptr<ForwardLink<R>> forward) {
    if (!inner.valid())
        return forward->body(std::move(inner), false);
    StatePtr<R> state = FutureAccess::take(std::move(inner));
    if (!forward->body.result->waitFor(upstreamOf(state)))
        cancelState(state);
    switch (attach(state, forward)) {
    case Attachment::Waiting:
        return nullptr;
    case Attachment::Due:
        return forward;
    default: // what get() throws then is what is to be passed on
        return forward->body(Future<R>(std::move(state)), false);
    }
}

/// Resolves a result with what a function of the host's makes of a future. The function is destroyed before that.
template <class T, class F, class R>
class Apply {
public:
    template <class Function>
    Apply(Function&& function, std::shared_ptr<ResultState<R>> result)
        : result(std::move(result)), function(std::in_place, std::forward<Function>(function)) {}

    std::unique_ptr<ChainLink> operator()(Future<T>&& source, bool cancelled) {
        if (cancelled)
            return cancelOne<R>(result).due;
        Outcome<R> outcome = room.hold([&]() -> R {
            if constexpr (std::is_void_v<std::invoke_result_t<F, Future<T>>>) {
                std::invoke(std::move(*function), std::move(source));
                return R();
            } else {
                return std::invoke(std::move(*function), std::move(source));
            }
        });
        function.reset();
        return publish<R>(result, std::move(outcome));
    }

private:
    // Before the function: if there is no room, the function is still the caller's.
    OutcomeRoom<R> room;
    const std::shared_ptr<ResultState<R>> result;
    std::optional<F> function;
};

/// Like Apply, for a function that returns a future.
template <class T, class F, class R>
class ApplyAndForward {
public:
    template <class Function>
    ApplyAndForward(Function&& function, std::shared_ptr<ResultState<R>> result)
        : forward(std::make_unique<ForwardLink<R>>(std::move(result))),
          function(std::in_place, std::forward<Function>(function)) {}

    std::unique_ptr<ChainLink> operator()(Future<T>&& source, bool cancelled) {
        if (cancelled)
            return forward->body(Future<R>(nullptr), true);
        Future<R> inner(nullptr);
        try {
            inner = std::invoke(std::move(*function), std::move(source));
        } catch (...) {
            function.reset();
            return publish<R>(forward->body.result, forward->body.room.holdException(std::current_exception()));
        }
        function.reset();
        return forwardFrom(std::move(inner), std::move(forward));
    }

private:
    std::unique_ptr<ForwardLink<R>> forward;
    std::optional<F> function;
};

/// Gathers the futures of a whenAll() as they arrive.
template <class T>
class Gathering {
public:
    using Futures = std::vector<Future<T>>;

    Gathering(const Futures& awaited, std::shared_ptr<ResultState<Futures>> result)
        : left(awaited.size() + 1), result(std::move(result)) {
        sources.reserve(awaited.size());
        for (const Future<T>& future : awaited)
            sources.push_back(future.valid() ? FutureAccess::state(future) : nullptr);
    }

    /// Resolves the result at the last of as many calls as there are futures, and one more of whenAll() itself.
    std::unique_ptr<ChainLink> countDown() {
        // Acquires and releases, for the futures that the other arrivals have stored.
        if (left.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return nullptr;
        return publish<Futures>(result, room.hold([&] { return std::move(futures); }));
    }

    void cancelSources() const {
        for (const auto& source : sources)
            if (const StatePtr<T> state = source.lock())
                cancelState(state);
    }

    /// Each element belongs to whenAll() until its future is attached, then to its link, and at last to countDown().
    Futures futures;

private:
    OutcomeRoom<Futures> room;
    std::vector<std::weak_ptr<SharedFutureState<T>>> sources;
    std::atomic<std::size_t> left;
    const std::shared_ptr<ResultState<Futures>> result;
};

template <class T>
class Arrive {
public:
    Arrive(std::shared_ptr<Gathering<T>> gathering, std::size_t index) noexcept
        : gathering(std::move(gathering)), index(index) {}

    std::unique_ptr<ChainLink> operator()(Future<T>&& source, bool) {
        gathering->futures[index] = std::move(source);
        return gathering->countDown();
    }

private:
    const std::shared_ptr<Gathering<T>> gathering;
    const std::size_t index;
};

} // namespace detail

/// Lets `function` go on with the reply: calls it with the resolved future, once, and gives a future for what it
/// returns.
///
///     Future<int> length = then(host->handle(...), [](Future<std::unique_ptr<Message>> reply) {
///         return lengthOf(*reply.get()); // throws what went wrong with the reply
///     });
///
/// - The function is called on the thread that resolves `future`, inside the resolving call, or here and now when the
///   future is resolved already. No lock is held. It must not wait for its own result.
/// - What it throws, `reply.get()` included, is what the result throws. If it returns a Future<R>, the result is a
///   Future<R> too, resolved when that one is; an invalid one gives "Future state isn't valid!". If it returns nothing,
///   the result is a Future<std::monostate>.
/// - It is destroyed, with what it captured, on the thread that called it, before the result is resolved. Whoever has
///   the result may rely on that; a captured object whose destructor waits for the result waits for ever.
/// - When `future` is cancelled, or its state dies without having been resolved, the function is destroyed without
///   having run and the result is cancelled. Cancelling the result cancels `future`, or, once the function has returned
///   a future, that one. Dropping the result does neither: the function runs all the same.
///
/// A chain may be of any length: resolving, cancelling or dropping it takes no more stack than one link does. But a
/// function that is called here and now and calls then() in its turn is ordinary recursion.
///
/// Takes `future` over and leaves it invalid. Throws std::runtime_error for a future without a state ("Future state
/// isn't valid!") and for one that was asked, or given a continuation, before ("Future already returned it's value or
/// has an associated continuation."), and std::bad_alloc; `future` is then as it was, and after std::bad_alloc
/// `function` too. All memory is allocated here: once then() has returned, no outcome is lost for want of it.
template <class T, class F>
auto then(Future<T>&& future, F&& function) -> Future<typename detail::ThenResultOf<T, F>::Value> {
    using Result = detail::ThenResultOf<T, F>;
    using R = typename Result::Value;
    using Body = std::conditional_t<Result::isFuture, detail::ApplyAndForward<T, std::decay_t<F>, R>,
                                    detail::Apply<T, std::decay_t<F>, R>>;
    const detail::StatePtr<T> state = detail::FutureAccess::state(future);
    auto result = std::make_shared<detail::ResultState<R>>(detail::upstreamOf(state));
    auto link = std::make_unique<detail::LinkTo<T, Body>>(std::forward<F>(function), result);
    const detail::Attachment attachment = detail::attach(state, link);
    if (attachment == detail::Attachment::Refused)
        detail::throwFutureRetrieved();
    future = Future<T>(nullptr);
    if (attachment == detail::Attachment::Due)
        detail::runChain(std::move(link));
    return Future<R>(std::move(result));
}

/// Waits for all of `futures` without blocking: the result gives them back, in their order, when each of them is
/// resolved or cancelled, so that get() of each gives its value or throws what went wrong with it. Of no futures, the
/// result is resolved at once.
///
/// A future that can't be waited for (see then()) counts as arrived and comes back as it was; one whose state died
/// without having been resolved comes back invalid. The result is resolved on the thread that resolves the last future,
/// or here. Cancelling it cancels each future that is still pending.
///
/// Takes the futures over and leaves the vector empty. Throws std::bad_alloc; nothing has changed then.
template <class T>
Future<std::vector<Future<T>>> whenAll(std::vector<Future<T>>&& futures) {
    using Gathering = detail::Gathering<T>;
    using ArriveLink = detail::LinkTo<T, detail::Arrive<T>>;
    const auto result = std::make_shared<detail::ResultState<std::vector<Future<T>>>>();
    const auto gathering = std::make_shared<Gathering>(futures, result);
    std::vector<std::unique_ptr<ArriveLink>> links;
    links.reserve(futures.size());
    for (std::size_t index = 0; index < futures.size(); ++index)
        links.push_back(std::make_unique<ArriveLink>(gathering, index));

    result->upstream = detail::Upstream(gathering, [](const std::shared_ptr<void>& target) {
        std::static_pointer_cast<Gathering>(target)->cancelSources();
        return detail::Upstream();
    });
    gathering->futures.swap(futures);
    // Nobody waits for the result yet, so what arrives here makes no other link due.
    for (std::size_t index = 0; index < links.size(); ++index) {
        Future<T>& future = gathering->futures[index];
        if (!future.valid()) {
            gathering->countDown();
            continue;
        }
        // Out of the gathering, which the state's link owns: it must not own the state in turn.
        detail::StatePtr<T> state = detail::FutureAccess::take(std::move(future));
        if (detail::attach(state, links[index]) != detail::Attachment::Waiting)
            links[index]->body(Future<T>(std::move(state)), false);
    }
    gathering->countDown();
    return Future<std::vector<Future<T>>>(result);
}

} // namespace connector
