#pragma once

#include <connector/async/detail/Forward.h>
#include <connector/async/detail/Timer.h>

#include <atomic>
#include <memory>
#include <utility>

namespace connector::detail {

/// The result of within(): resolved by its source or by its timer. Cancelled before its source: cancelling that would
/// not cancel a result whose timer has just expired.
template <class T>
class LimitedState final : public ResultState<T>, public Timer {
public:
    OutcomeRoom<T> room;

    /// Set by the first of the two.
    std::atomic<bool> settled{false};

private:
    void expired() override {
        if (settled.exchange(true, std::memory_order_relaxed))
            return;
        const auto self = std::static_pointer_cast<ResultState<T>>(this->shared_from_this());
        const Upstream source = this->nextSource();
        // The source is cancelled here, or by within() if it attaches the link later.
        this->cancelled.store(true, std::memory_order_relaxed);
        Work work;
        if (const std::shared_ptr<void> state = source.state.lock())
            cancelFrom(state, source.visit, this, work);
        work.run();
        publish(self, room.holdException(timedOut()), work, false);
        work.run();
    }
};

/// The body of the link of a within().
template <class T>
class Limit {
public:
    explicit Limit(std::shared_ptr<LimitedState<T>> result) : result(std::move(result)) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        if (!settles())
            return;
        if (cancelled)
            cancelResult<T>(result, work);
        else
            publish<T>(result, result->room.holdOutcomeOf(std::move(source)), work);
    }
    void refuse(Work& work) {
        if (settles())
            publish<T>(result, result->room.holdRefusal(), work);
    }
    const Waiter* waiter() const noexcept { return result.get(); }

private:
    bool settles() noexcept {
        if (result->settled.exchange(true, std::memory_order_relaxed))
            return false;
        result->stop();
        return true;
    }

    const std::shared_ptr<LimitedState<T>> result;
};

} // namespace connector::detail
