#pragma once

#include <connector/async/detail/OutcomeRoom.h>
#include <connector/async/detail/ResultState.h>
#include <connector/async/detail/Timer.h>

#include <memory>
#include <variant>

namespace connector::detail {

class AfterState final : public ResultState<std::monostate>, public Timer {
public:
    /// Stops the timer when the result is cancelled.
    static Upstream timer(const std::shared_ptr<AfterState>& state) {
        return {state, [](const std::shared_ptr<void>& target, Visitor&, Work&) {
                    std::static_pointer_cast<AfterState>(target)->stop();
                    return Visit::Cancelled;
                }};
    }

    void expired() override {
        Work work;
        publish(std::static_pointer_cast<ResultState<std::monostate>>(shared_from_this()),
                room.hold([] { return std::monostate(); }), work);
        work.run();
    }

private:
    OutcomeRoom<std::monostate> room;
};

} // namespace connector::detail
