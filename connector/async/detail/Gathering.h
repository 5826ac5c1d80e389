#pragma once

#include <connector/async/detail/ResultState.h>

#include <atomic>
#include <cassert>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace connector::detail {

/// The futures of one whenAll(): counts those that have arrived and resolves the result when all have.
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

    /// Called once for each future, and once by whenAll() when it has attached all links. The last call resolves the
    /// result.
    void countDown(Work& work) {
        // Acquires and releases the futures that other arrivals have stored.
        if (left.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        assert(futures.size() == sources.size());
        for (std::size_t index = 0; index < sources.size(); ++index)
            if (sources[index].refused)
                futures[index] =
                    Future<T>(std::static_pointer_cast<SharedFutureState<T>>(sources[index].upstream.state.lock()));
        publish(result, room.hold([&] { return std::move(futures); }), work);
    }

    /// Counts a future that refused its link as arrived. A state that is pending or has a continuation may own this
    /// gathering through a continuation, so it is kept weakly.
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

    /// Each element belongs to whenAll() until its link is attached, then to the link, and finally to countDown().
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

/// The body of a link that stores one resolved or cancelled future in its gathering.
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

template <class T>
using ArriveLink = LinkTo<T, Arrive<T>>;

/// One link for each of `count` futures.
template <class T>
std::vector<std::unique_ptr<ArriveLink<T>>> arriveLinks(const std::shared_ptr<Gathering<T>>& gathering,
                                                        std::size_t count) {
    std::vector<std::unique_ptr<ArriveLink<T>>> links;
    links.reserve(count);
    for (std::size_t index = 0; index < count; ++index)
        links.push_back(std::make_unique<ArriveLink<T>>(gathering, index));
    return links;
}

/// The source of the result of whenAll(). Cancelling it cancels the futures that the gathering waits for.
template <class T>
Upstream upstreamOf(const std::shared_ptr<Gathering<T>>& gathering) {
    return {gathering, [](const std::shared_ptr<void>& target, Visitor&, Work& work) {
                work.add(std::static_pointer_cast<Gathering<T>>(target));
                return Visit::Cancelled;
            }};
}

/// Attaches `link` to the future at `index`, or counts the future as arrived.
template <class T>
void await(Gathering<T>& gathering, std::size_t index, std::unique_ptr<ArriveLink<T>> link, Work& work) {
    Future<T>& future = gathering.futures[index];
    if (!future.valid())
        return gathering.countDown(work);
    // Taken out of the gathering: the state owns the link and the link owns the gathering.
    StatePtr<T> state = FutureAccess::take(std::move(future));
    switch (attach(state, link)) {
    case Attachment::Waiting:
    case Attachment::Abandoned:
        break;
    case Attachment::Due:
        link->body(Future<T>(std::move(state)), false, work);
        break;
    case Attachment::Orphaned:
        gathering.countDown(work);
        break;
    case Attachment::Refused:
        gathering.refuse(index, std::move(state), work);
        break;
    }
}

} // namespace connector::detail
