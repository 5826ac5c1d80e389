#pragma once

#include <connector/async/detail/OutcomeRoom.h>
#include <connector/async/detail/ResultState.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <variant>
#include <vector>

namespace connector::detail {

/// The gates of a window(): one for each item, opened in their order.
class Gates {
public:
    explicit Gates(std::size_t count) : gates(count) {}

    /// A future that is resolved when the gate of `index` is opened.
    Future<std::monostate> gate(std::size_t index) { return {gates[index].state}; }

    /// Opens `count` further gates. Called inside itself, or meanwhile on another thread, it leaves the opening to the
    /// call that is under way.
    void open(std::size_t count) {
        if (allowed.fetch_add(count, std::memory_order_acq_rel) != 0)
            return;
        do
            openNext();
        while (allowed.fetch_sub(1, std::memory_order_acq_rel) != 1);
    }

    /// The item of `index` has ended. Opens another gate if its own was opened.
    void ended(std::size_t index) {
        if (gates[index].phase.exchange(Phase::Ended, std::memory_order_relaxed) == Phase::Open)
            open(1);
    }

private:
    enum class Phase { Waiting, Open, Ended };

    // Not a promise: opening it must not fail for lack of memory.
    struct Gate {
        std::shared_ptr<ResultState<std::monostate>> state = std::make_shared<ResultState<std::monostate>>();
        OutcomeRoom<std::monostate> room;
        std::atomic<Phase> phase{Phase::Waiting};
    };

    void openNext() {
        while (next < gates.size()) {
            Gate& gate = gates[next++];
            Phase waiting = Phase::Waiting;
            // One whose item was cancelled doesn't count.
            if (gate.phase.compare_exchange_strong(waiting, Phase::Open, std::memory_order_relaxed)) {
                Work work;
                publish(gate.state, gate.room.hold([] { return std::monostate(); }), work);
                return work.run();
            }
        }
    }

    std::vector<Gate> gates;
    std::size_t next = 0; // belongs to the call that opens
    std::atomic<std::size_t> allowed{0};
};

} // namespace connector::detail
