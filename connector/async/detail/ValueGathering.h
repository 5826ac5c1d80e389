#pragma once

#include <connector/async/detail/Gathering.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace connector::detail {

template <class T>
class ValueGathering final : public VectorGathering<T> {
public:
    ValueGathering(std::size_t count, std::shared_ptr<ResultState<std::vector<T>>> result)
        : VectorGathering<T>(count), result(std::move(result)) {
        values.reserve(count);
    }

private:
    void arrived(std::size_t index, Arrival arrival, Work& work) override {
        Future<T>& slot = this->gathered[index].slot;
        if (arrival == Arrival::Resolved && !FutureAccess::failed(slot))
            return;
        if (failed.exchange(true, std::memory_order_relaxed))
            return;
        if (arrival == Arrival::Resolved)
            publish(result, room.holdException(FutureAccess::takeFailure(slot)), work);
        else if (arrival == Arrival::Cancelled)
            cancelResult(result, work);
        else if (this->sources[index].visit)
            publish(result, room.holdRefusal(), work);
        else
            publish(result, room.hold([]() -> std::vector<T> { throwFutureInvalid(); }), work);
        this->cancelAll(work);
    }

    void complete(Work& work) override {
        if (failed.load(std::memory_order_relaxed))
            return;
        const auto take = [this] {
            for (Gathered<T>& each : this->gathered)
                values.push_back(each.slot.get());
            return std::move(values);
        };
        publish(result, room.hold(take), work);
    }

    std::atomic<bool> failed{false};
    OutcomeRoom<std::vector<T>> room;
    std::vector<T> values;
    const std::shared_ptr<ResultState<std::vector<T>>> result;
};

} // namespace connector::detail
