#pragma once

#include <connector/api/Message.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace bench::floor {

using MessagePtr = std::unique_ptr<connector::Message>;

/// The state that the producer and the consumer of one reply share. It has the same fields as the framework's state,
/// including the weak reference to itself, the slot for a continuation and the flags, but none of its checks.
class State : public std::enable_shared_from_this<State> {
public:
    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    ~State() {
        const std::lock_guard<std::mutex> lock(mutex);
        delete outcome;
    }

    void resolve(MessagePtr&& value) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            outcome = new MessagePtr(std::move(value));
            resolved = 1;
        }
        condition.notify_one();
        std::this_thread::yield();
    }

    MessagePtr get() {
        std::unique_lock<std::mutex> lock(mutex);
        retrieved = true;
        condition.wait(lock, [this] { return resolved != 0; });
        return std::move(*outcome);
    }

private:
    struct Continuation {
        virtual ~Continuation() = default;
    };

    std::mutex mutex;
    std::condition_variable condition;
    MessagePtr* outcome = nullptr;
    std::unique_ptr<Continuation> continuation;
    std::uint32_t resolved = 0;
    [[maybe_unused]] bool continuationFlag = false;
    bool retrieved = false;
};

class Future {
public:
    explicit Future(std::shared_ptr<State> state) noexcept : state(std::move(state)), valid(true) {}
    ~Future() { valid.store(false); }

    MessagePtr get() {
        const std::shared_ptr<State> kept = state;
        return kept->get();
    }

private:
    const std::shared_ptr<State> state;
    std::atomic<bool> valid;
};

inline Future ready(MessagePtr&& value) {
    auto state = std::make_shared<State>();
    state->resolve(std::move(value));
    return Future(std::move(state));
}

} // namespace bench::floor
