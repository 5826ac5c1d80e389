#pragma once

#include <connector/async/detail/Gathering.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::detail {

/// The gathering of a whenAny(), which gives a Result: an index and all futures.
template <class T, class Result>
class AnyGathering final : public VectorGathering<T> {
public:
    AnyGathering(std::size_t count, std::shared_ptr<ResultState<Result>> result, bool cancelsOthers)
        : VectorGathering<T>(count), cancelsOthers(cancelsOthers), result(std::move(result)) {
        outcome.index = count;
        outcome.futures.reserve(count);
    }

    void abandon(std::size_t index, const std::shared_ptr<void>& state, Work& work) override {
        if (cancelsOthers)
            Gathering::abandon(index, state, work);
        else
            giveBack(index, state, work);
    }

private:
    void arrived(std::size_t index, Arrival arrival, Work& work) override {
        if (arrival == Arrival::Refused || decided.exchange(true, std::memory_order_relaxed))
            return;
        outcome.index = index;
        if (cancelsOthers)
            return this->cancelAll(work);
        // A link that is attached later finds the flag and is given back then.
        if (this->cancelled.exchange(true, std::memory_order_relaxed))
            return;
        for (std::size_t other = 0; other < this->gathered.size(); ++other)
            if (const std::shared_ptr<void> state = this->sources[other].state.lock())
                giveBack(other, state, work);
    }

    /// Takes the link away from a pending future. One that has ended arrives by itself.
    void giveBack(std::size_t index, const std::shared_ptr<void>& target, Work& work) {
        const StatePtr<T> state = std::static_pointer_cast<SharedFutureState<T>>(target);
        std::unique_ptr<FutureContinuation<T>> link;
        {
            const std::lock_guard<std::mutex> lock(state->mutex);
            if (!state->continuation || state->continuation.get() != this->gathered[index].attached)
                return;
            static_cast<Link<T>&>(*state->continuation).waiting = false;
            link = std::move(state->continuation);
            this->gathered[index].attached = nullptr;
        }
        this->gathered[index].slot = Future<T>(state);
        this->countDown(work);
    }

    void complete(Work& work) override {
        for (Gathered<T>& each : this->gathered)
            outcome.futures.push_back(each.take());
        publish(result, room.hold([&] { return std::move(outcome); }), work);
    }

    const bool cancelsOthers;
    std::atomic<bool> decided{false};
    OutcomeRoom<Result> room;
    Result outcome;
    const std::shared_ptr<ResultState<Result>> result;
};

} // namespace connector::detail
