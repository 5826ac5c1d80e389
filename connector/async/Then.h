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

// A future carries an object, so nothing is a std::monostate.
template <class R>
struct ThenResult : std::false_type {
    using Value = std::conditional_t<std::is_void_v<R>, std::monostate, R>;
};

template <class R>
struct ThenResult<Future<R>> : std::true_type {
    using Value = R;
};

/// True if F returns a future. A function that can't be called has some result, so that then() can reject it.
template <class T, class F, bool = std::is_invocable_v<F, Future<T>>>
struct ThenResultOf : ThenResult<void> {};

template <class T, class F>
struct ThenResultOf<T, F, true> : ThenResult<std::decay_t<std::invoke_result_t<F, Future<T>>>> {};

/// Passes the outcome of a future on to a result.
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

/// Lets `forward` wait for `inner`, which then is what its result waits for.
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

/// Resolves a result with what a host function makes of a future. The function is destroyed before that, and
/// before the result is cancelled because the future was.
template <class T, class F, class R>
class Apply {
public:
    template <class Function>
    Apply(Function&& function, std::shared_ptr<ResultState<R>> result)
        : result(std::move(result)), function(std::in_place, std::forward<Function>(function)) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        if (cancelled) {
            function.reset();
            return cancelResult(result, work);
        }
        result->functionRuns.store(true, std::memory_order_relaxed);
        Outcome<R> outcome = room.hold([&]() -> R {
            if constexpr (std::is_void_v<std::invoke_result_t<F, Future<T>>>) {
                std::invoke(std::move(*function), std::move(source));
                return R();
            } else {
                return std::invoke(std::move(*function), std::move(source));
            }
        });
        function.reset();
        publish(result, std::move(outcome), work);
    }
    const Waiter* waiter() const noexcept { return result.get(); }

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

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        const std::shared_ptr<ResultState<R>>& result = forward->body.result;
        if (cancelled) {
            function.reset();
            return cancelResult(result, work);
        }
        result->functionRuns.store(true, std::memory_order_relaxed);
        Future<R> inner(nullptr);
        try {
            inner = std::invoke(std::move(*function), std::move(source));
        } catch (...) {
            function.reset();
            return publish(result, forward->body.room.holdException(std::current_exception()), work);
        }
        function.reset();
        forwardFrom(std::move(inner), std::move(forward), work);
    }
    const Waiter* waiter() const noexcept { return forward->body.result.get(); }

private:
    std::unique_ptr<ForwardLink<R>> forward;
    std::optional<F> function;
};

/// Gathers the futures of a whenAll() as they arrive.
template <class T>
class Gathering final : public Waiter {
public:
    using Futures = std::vector<Future<T>>;

    Gathering(const Futures& awaited, std::shared_ptr<ResultState<Futures>> result)
        : left(awaited.size() + 1), result(std::move(result)) {
        sources.reserve(awaited.size());
        for (const Future<T>& future : awaited)
            sources.push_back({future.valid() ? upstreamOf(FutureAccess::state(future)) : Upstream()});
    }

    /// Resolves the result at the last of as many calls as there are futures, and one more of whenAll() itself.
    void countDown(Work& work) {
        // Acquires and releases, for the futures that the other arrivals have stored.
        if (left.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        for (std::size_t index = 0; index < sources.size(); ++index)
            if (sources[index].refused)
                futures[index] =
                    Future<T>(std::static_pointer_cast<SharedFutureState<T>>(sources[index].upstream.state.lock()));
        publish(result, room.hold([&] { return std::move(futures); }), work);
    }

    /// Counts a future that can't be waited for as arrived. Its state may own this gathering, by what waits for it, so
    /// it is kept weakly as long as it may own anything.
    void refuse(std::size_t index, StatePtr<T> state, Work& work) {
        {
            const std::lock_guard<std::mutex> lock(state->mutex);
            sources[index].refused = state->status == FutureStatus::Pending || state->continuation;
        }
        if (!sources[index].refused)
            futures[index] = Future<T>(std::move(state));
        countDown(work);
    }

    Upstream nextSource() override { return visited < sources.size() ? sources[visited++].upstream : Upstream(); }

    /// Each element belongs to whenAll() until its future is attached, then to its link, and at last to countDown().
    Futures futures;

private:
    struct Source {
        Upstream upstream;
        bool refused = false;
    };

    OutcomeRoom<Futures> room;
    std::vector<Source> sources;
    std::size_t visited = 0;
    std::atomic<std::size_t> left;
    const std::shared_ptr<ResultState<Futures>> result;
};

template <class T>
class Arrive {
public:
    Arrive(std::shared_ptr<Gathering<T>> gathering, std::size_t index) noexcept
        : gathering(std::move(gathering)), index(index) {}

    void operator()(Future<T>&& source, bool /*cancelled*/, Work& work) {
        gathering->futures[index] = std::move(source);
        gathering->countDown(work);
    }
    const Waiter* waiter() const noexcept { return gathering.get(); }

private:
    const std::shared_ptr<Gathering<T>> gathering;
    const std::size_t index;
};

} // namespace detail

/// Continues with the reply: calls `function` with the resolved future, once, and gives a future for what it returns.
///
///     Future<int> length = then(host->handle(...), [](Future<std::unique_ptr<Message>> reply) {
///         return lengthOf(*reply.get()); // throws what went wrong with the reply
///     });
///
/// - The function is called on the thread that resolves `future`, inside the resolving call, or here and now when the
///   future is resolved already. No lock is held. It must not wait for its own result.
/// - What it throws, `reply.get()` included, is what the result throws. If it returns a Future<R>, the result is a
///   Future<R> too, resolved when that one is; an invalid one gives "Future state isn't valid!", and one that was
///   asked, or given a continuation, before gives "Future already returned it's value or has an associated
///   continuation.". If it returns nothing, the result is a Future<std::monostate>.
/// - It is destroyed, with what it captured, on the thread that called it, before the result is resolved. A consumer of
///   the result may rely on that; a captured object whose destructor waits for the result waits for ever.
/// - When `future` is cancelled, or its state is destroyed without having been resolved, the function is destroyed
///   without having run, and then the result is cancelled. Cancelling the result cancels `future`, or, once the
///   function has returned a future, that one. While the function runs, or is about to run since its reply is there,
///   cancelling doesn't wait for it: the result is cancelled at once, and the function destroyed when it has returned.
///   Dropping the result cancels nothing: the function runs all the same, so the result may be ignored.
///
/// A chain may be of any length: resolving, cancelling or dropping it takes no more stack than one link does. But a
/// function that is called here and now and calls then() itself, or one that resolves or drops another promise, is
/// ordinary recursion.
///
/// Takes `future` over and leaves it invalid. Throws std::runtime_error for a future without a state ("Future state
/// isn't valid!") and for one that was asked, or given a continuation, before ("Future already returned it's value or
/// has an associated continuation."), and std::bad_alloc; `future` is then as it was, and after std::bad_alloc
/// `function` too. All memory is allocated here: once then() has returned, no outcome is lost for want of it.
template <class T, class F>
auto then(Future<T>&& future, F&& function) -> Future<typename detail::ThenResultOf<T, std::decay_t<F>>::Value> {
    using Function = std::decay_t<F>;
    using Result = detail::ThenResultOf<T, Function>;
    using R = typename Result::Value;
    constexpr bool takesFuture = std::is_invocable_v<Function, Future<T>>;
    static_assert(takesFuture, "the function given to then() must take one argument, the resolved Future<T>");
    if constexpr (takesFuture) {
        using Body =
            std::conditional_t<Result::value, detail::ApplyAndForward<T, Function, R>, detail::Apply<T, Function, R>>;
        const detail::StatePtr<T>& state = detail::FutureAccess::state(future);
        auto result = std::make_shared<detail::ResultState<R>>(detail::upstreamOf(state));
        auto link = std::make_unique<detail::LinkTo<T, Body>>(std::forward<F>(function), result);
        const detail::Attachment attachment = detail::attach(state, link);
        if (attachment == detail::Attachment::Refused)
            detail::throwFutureRetrieved();
        detail::FutureAccess::take(std::move(future));
        detail::Work work;
        if (attachment == detail::Attachment::Due)
            work.add(std::move(link));
        else if (attachment == detail::Attachment::Orphaned)
            link->body(Future<T>(nullptr), true, work);
        work.run();
        return Future<R>(std::move(result));
    } else {
        return Future<R>(nullptr);
    }
}

/// Waits for all of `futures` without blocking: the result gives them back, in their order, when each of them is
/// resolved or cancelled, so that get() of each gives its value or throws what went wrong with it. Of no futures, the
/// result is resolved at once.
///
/// A future that can't be waited for (see then()) counts as arrived, is never cancelled from here, and comes back as it
/// was. One whose state was destroyed comes back invalid; the result keeps no pending state alive. The result is
/// resolved on the thread that resolves the last future, or here. Cancelling it cancels each future that it still waits
/// for.
///
/// Takes the futures over and leaves the vector empty. Throws std::bad_alloc; nothing has changed then.
template <class T>
[[nodiscard]] Future<std::vector<Future<T>>> whenAll(std::vector<Future<T>>&& futures) {
    using Gathering = detail::Gathering<T>;
    using ArriveLink = detail::LinkTo<T, detail::Arrive<T>>;
    using detail::Attachment;
    const auto result = std::make_shared<detail::ResultState<std::vector<Future<T>>>>();
    const auto gathering = std::make_shared<Gathering>(futures, result);
    std::vector<std::unique_ptr<ArriveLink>> links;
    links.reserve(futures.size());
    for (std::size_t index = 0; index < futures.size(); ++index)
        links.push_back(std::make_unique<ArriveLink>(gathering, index));

    result->upstream = {gathering, [](const std::shared_ptr<void>& target, detail::Visitor&, detail::Work& work) {
                            work.add(std::static_pointer_cast<Gathering>(target));
                            return detail::Visit::Cancelled;
                        }};
    gathering->futures.swap(futures);
    // Nobody waits for the result yet, so what arrives here makes no other link due.
    detail::Work work;
    for (std::size_t index = 0; index < links.size(); ++index) {
        Future<T>& future = gathering->futures[index];
        if (!future.valid()) {
            gathering->countDown(work);
            continue;
        }
        // Out of the gathering, which the state's link owns: it must not own the state in turn.
        detail::StatePtr<T> state = detail::FutureAccess::take(std::move(future));
        switch (detail::attach(state, links[index])) {
        case Attachment::Due:
            links[index]->body(Future<T>(std::move(state)), false, work);
            break;
        case Attachment::Refused:
            gathering->refuse(index, std::move(state), work);
            break;
        case Attachment::Orphaned:
            gathering->countDown(work);
            break;
        default:
            break;
        }
    }
    gathering->countDown(work);
    return Future<std::vector<Future<T>>>(result);
}

} // namespace connector
