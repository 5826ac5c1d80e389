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

/// How a future of a gathering ended.
enum class Arrival {
    Resolved,  ///< with a value or an exception
    Cancelled, ///< or its state was destroyed
    Refused,   ///< it has no state, or its value is already claimed
};

/// Futures that one result waits for: counts those that have arrived, and completes the result when all have.
class Gathering : public Waiter, public std::enable_shared_from_this<Gathering> {
public:
    /// Counts a future as arrived. It is in its slot, unless it was refused.
    void arrive(std::size_t index, Arrival arrival, Work& work) {
        arrived(index, arrival, work);
        countDown(work);
    }

    /// Called once for each future, and once when all links are attached. The last call completes the result.
    void countDown(Work& work) {
        // Acquires and releases the futures that other arrivals have stored.
        if (left.fetch_sub(1, std::memory_order_acq_rel) == 1)
            complete(work);
    }

    /// Cancels the futures that are still awaited. Futures that are attached later find `cancelled` set.
    void cancelAll(Work& work) {
        if (!cancelled.exchange(true, std::memory_order_relaxed))
            work.add(shared_from_this());
    }

    /// The source of the result: cancelling it cancels the futures.
    Upstream upstream() {
        return {shared_from_this(), [](const std::shared_ptr<void>& target, Visitor&, Work& work) {
                    std::static_pointer_cast<Gathering>(target)->cancelAll(work);
                    return Visit::Cancelled;
                }};
    }

    Upstream nextSource() override { return visited < sources.size() ? sources[visited++] : Upstream(); }

    /// Called when `index` was attached after `cancelled` was set; `state` is its state.
    virtual void abandon(std::size_t index, const std::shared_ptr<void>& state, Work& work) {
        cancelFrom(state, sources[index].visit, this, work);
    }

protected:
    explicit Gathering(std::size_t count) : left(count + 1) { sources.reserve(count); }

    /// Called once for each future, in any order, on any thread.
    virtual void arrived(std::size_t /*index*/, Arrival /*arrival*/, Work& /*work*/) {}
    virtual void complete(Work& work) = 0;

    template <class T>
    void addSource(const Future<T>& future) {
        sources.push_back(future.valid() ? upstreamOf(FutureAccess::state(future)) : Upstream());
    }

    std::vector<Upstream> sources;

private:
    std::size_t visited = 0;
    std::atomic<std::size_t> left;
};

/// The body of a link that stores one resolved or cancelled future in its gathering.
template <class T>
class Arrive {
public:
    Arrive(std::shared_ptr<Gathering> gathering, std::size_t index, Future<T>& slot) noexcept
        : gathering(std::move(gathering)), index(index), slot(slot) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        slot = std::move(source);
        gathering->arrive(index, cancelled ? Arrival::Cancelled : Arrival::Resolved, work);
    }
    const Waiter* waiter() const noexcept { return gathering.get(); }

private:
    const std::shared_ptr<Gathering> gathering;
    const std::size_t index;
    Future<T>& slot;
};

template <class T>
using ArriveLink = LinkTo<T, Arrive<T>>;

/// One future of a gathering. The slot holds it until a link is attached, and again when it has arrived.
template <class T>
struct Gathered {
    Future<T> slot{nullptr};

    /// The link until it is taken back; compared only. Set before any link is attached, then guarded by the mutex of
    /// the future's state.
    const FutureContinuation<T>* attached = nullptr;

    /// The state of a refused future. One that is pending or has a continuation may own the gathering through that
    /// continuation, so it is kept weakly until the gathering is complete.
    std::weak_ptr<SharedFutureState<T>> refused;

    /// Attaches `link`, or counts the future as arrived.
    void await(Gathering& gathering, std::size_t index, std::unique_ptr<ArriveLink<T>> link, Work& work) {
        if (!slot.valid())
            return gathering.arrive(index, Arrival::Refused, work);
        // Taken out of the gathering: the state owns the link and the link owns the gathering.
        StatePtr<T> state = FutureAccess::take(std::move(slot));
        switch (attach(state, link, &gathering)) {
        case Attachment::Waiting:
            break;
        case Attachment::Abandoned:
            gathering.abandon(index, state, work);
            break;
        case Attachment::Due:
            link->run(work);
            break;
        case Attachment::Orphaned:
            gathering.arrive(index, Arrival::Cancelled, work);
            break;
        case Attachment::Refused:
            refused = state;
            {
                const std::lock_guard<std::mutex> lock(state->mutex);
                attached = nullptr;
                if (state->status != FutureStatus::Pending && !state->continuation)
                    slot = Future<T>(state);
            }
            gathering.arrive(index, Arrival::Refused, work);
            break;
        }
    }

    /// The future, when the gathering is complete.
    Future<T> take() {
        if (!slot.valid())
            slot = Future<T>(refused.lock());
        return std::move(slot);
    }
};

/// A gathering of futures of one type.
template <class T>
class VectorGathering : public Gathering {
public:
    explicit VectorGathering(std::size_t count) : Gathering(count), gathered(count) {}

    /// Makes one link for each future. The futures are unchanged.
    std::vector<std::unique_ptr<ArriveLink<T>>> prepare(const std::vector<Future<T>>& futures) {
        std::vector<std::unique_ptr<ArriveLink<T>>> links;
        links.reserve(gathered.size());
        for (std::size_t index = 0; index < gathered.size(); ++index) {
            addSource(futures[index]);
            links.push_back(std::make_unique<ArriveLink<T>>(shared_from_this(), index, gathered[index].slot));
            gathered[index].attached = links.back().get();
        }
        return links;
    }

    /// Takes the futures over.
    void begin(std::vector<Future<T>>&& futures, std::vector<std::unique_ptr<ArriveLink<T>>>&& links, Work& work) {
        for (std::size_t index = 0; index < gathered.size(); ++index)
            gathered[index].slot = std::move(futures[index]);
        futures.clear();
        for (std::size_t index = 0; index < gathered.size(); ++index)
            gathered[index].await(*this, index, std::move(links[index]), work);
        countDown(work);
    }

protected:
    std::vector<Gathered<T>> gathered;
};

/// Lets a `Kind` of gathering resolve a Future<R> from `futures`.
template <class Kind, class R, class T, class... Options>
Future<R> gather(std::vector<Future<T>>&& futures, Options... options) {
    auto result = std::make_shared<ResultState<R>>();
    const auto gathering = std::make_shared<Kind>(futures.size(), result, options...);
    auto links = gathering->prepare(futures);
    // From here on, nothing throws.
    result->upstream = gathering->upstream();
    // No link is attached to the result yet, so an arrival adds no work but cancellations.
    Work work;
    gathering->begin(std::move(futures), std::move(links), work);
    work.run();
    return Future<R>(std::move(result));
}

} // namespace connector::detail
