#pragma once

#include <connector/Export.h>
#include <connector/async/detail/ResultState.h>

#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace connector {

class Message;

namespace detail {

/// Called when a future is cancelled.
class CancelHook {
public:
    CancelHook() = default;
    CancelHook(const CancelHook&) = delete;
    CancelHook& operator=(const CancelHook&) = delete;
    virtual ~CancelHook() {
        while (next) // one after the other, not in nested calls
            next = std::move(next->next);
    }
    virtual void cancelled() noexcept = 0;

    std::unique_ptr<CancelHook> next;
};

template <class F>
class CancelFunction final : public CancelHook {
public:
    template <class Function, class = std::enable_if_t<!std::is_same_v<std::decay_t<Function>, CancelFunction>>>
    explicit CancelFunction(Function&& function) : function(std::forward<Function>(function)) {}
    void cancelled() noexcept override { std::move(function)(); }

private:
    F function;
};

/// The state of a future with a producer that can learn of a cancellation: that of a promise or of a coroutine.
template <class T>
class ProducerState final : public ResultState<T> {
public:
    /// Resolves the state with the outcome that `store` puts into it. If `store` throws, nothing has changed. A
    /// cancelled state ignores it. `self` keeps the state until this returns: its consumer may drop it. Throws
    /// std::runtime_error ("Promise already resolved.").
    template <class Store>
    static void resolve(const std::shared_ptr<ProducerState> self, FutureStatus status, const Store& store) {
        std::unique_ptr<CancelHook> unused;
        Work work;
        std::unique_lock<std::mutex> lock(self->mutex);
        if (!FutureAccess::acceptsOutcome(*self))
            return;
        store(self->outcome);
        unused = std::move(self->hooks);
        settle<T>(self, status, lock, work);
        unused.reset();
        work.run();
    }

    /// publish(), for a coroutine with hooks that has ended.
    void end(Outcome<T> outcome, Work& work) {
        publish(std::static_pointer_cast<ResultState<T>>(this->shared_from_this()), std::move(outcome), work);
        // The hooks of a state that was cancelled meanwhile belong to the call that cancelled it.
        std::unique_ptr<CancelHook> unused; // destroyed without the mutex
        const std::lock_guard<std::mutex> lock(this->mutex);
        if (this->status != FutureStatus::Cancelled)
            unused = std::move(hooks);
    }

    /// Calls `hook` when the state is cancelled, or here if it is already. Destroys it if the state is resolved.
    void onCancel(std::unique_ptr<CancelHook> hook) {
        {
            const std::lock_guard<std::mutex> lock(this->mutex);
            if (this->status == FutureStatus::Pending) {
                hook->next = std::move(hooks);
                hooks = std::move(hook);
                return;
            }
            if (this->status != FutureStatus::Cancelled)
                return;
        }
        hook->cancelled();
    }

    Upstream nextSource() override {
        {
            const std::lock_guard<std::mutex> lock(this->mutex);
            if (hooks)
                return {this->weak_from_this(), callHook};
        }
        return ResultState<T>::nextSource();
    }

private:
    static Visit callHook(const std::shared_ptr<void>& target, Visitor& /*visitor*/, Work& /*work*/) {
        auto& state = static_cast<ProducerState&>(*std::static_pointer_cast<SharedFutureState<T>>(target));
        std::unique_ptr<CancelHook> hook;
        {
            const std::lock_guard<std::mutex> lock(state.mutex);
            hook = std::move(state.hooks);
            if (hook)
                state.hooks = std::move(hook->next);
        }
        if (hook)
            hook->cancelled();
        return Visit::Cancelled;
    }

    /// Guarded by `mutex`. None once the state is resolved, or cancelled and the hooks are called.
    std::unique_ptr<CancelHook> hooks;
};

/// A new pending state. For replies, its code is that of this library, so that they outlive a plugin that answered with
/// them.
template <class T>
std::shared_ptr<ProducerState<T>> makeProducerState() {
    return std::make_shared<ProducerState<T>>();
}

extern template CONNECTOR_ASYNC_EXPORT std::shared_ptr<ProducerState<std::unique_ptr<Message>>> makeProducerState();

} // namespace detail
} // namespace connector
