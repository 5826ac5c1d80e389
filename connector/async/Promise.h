#pragma once

#include <connector/async/detail/ProducerState.h>

#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace connector {

/// The producer's handle for a reply that comes later. A provider keeps the promise, returns its future(), and resolves
/// the promise once, on any thread:
///
///     Promise<std::unique_ptr<Message>> promise;
///     auto reply = promise.future();
///     worker.post([promise = std::move(promise)]() mutable { promise.setValue(answer()); });
///     return reply;
///
/// A promise that is destroyed, or overwritten by an assignment, before it was resolved fails its future with
/// std::runtime_error ("Promise destroyed before it was resolved."), so that no consumer waits forever. If there is no
/// memory for that exception, it cancels the future instead.
///
/// Ownership: move-only; shares the state with its futures. Threads: one thread uses a promise at a time; other threads
/// may use its futures. A continuation runs on the thread that resolves the promise, inside that call, and may destroy
/// the promise. Every operation of a moved-from promise throws std::runtime_error ("Promise state isn't valid!").
template <class T>
class Promise {
public:
    /// An unresolved promise. Throws std::bad_alloc.
    Promise() : state(detail::makeProducerState<T>()) {}

    /// Takes over the state of the other promise.
    Promise(Promise&&) noexcept = default;

    /// Takes over the state of `other`. The state that this promise had is treated as by the destructor.
    Promise& operator=(Promise&& other) noexcept {
        Promise dropped(std::move(other));
        std::swap(state, dropped.state);
        return *this;
    }

    /// Fails its future if it is unresolved, as described above.
    ~Promise() { drop(); }

    /// A future for the reply. The futures of one promise share its one reply: the first consumer takes it.
    [[nodiscard]] Future<T> future() const { return Future<T>(valid()); }

    /// Resolves with `value`. Throws std::runtime_error ("Promise already resolved.") and std::bad_alloc; in these
    /// cases, and if the future was cancelled, the caller still owns `value`. Wakes a blocked consumer and then yields
    /// the processor once; without one, doesn't yield.
    void setValue(T&& value) {
        State::resolve(valid(), detail::FutureStatus::HasValue,
                       [&](auto& outcome) { outcome.value = ::new T(std::move(value)); });
    }

    /// Resolves with `exception`, which the consumer's get() throws. Throws like setValue().
    void setException(const std::exception_ptr& exception) {
        State::resolve(valid(), detail::FutureStatus::HasException, [&](auto& outcome) {
            outcome.exception =
                new std::exception_ptr(exception); // NOLINT(bugprone-throw-keyword-missing): it is stored
        });
    }

    /// Whether the consumer cancelled the future. No consumer waits then, and resolving does nothing. Takes the state's
    /// mutex.
    [[nodiscard]] bool cancelled() const { return status(*valid()) == detail::FutureStatus::Cancelled; }

    /// Calls `function`, without arguments, when the consumer cancels the future: inside the call that cancels, on its
    /// thread, with no lock held. If it was cancelled already, calls it here. Otherwise destroys it when the promise is
    /// resolved, before the continuation runs. Functions that are added later are called first. They must not throw.
    /// Throws std::bad_alloc, and nothing has changed.
    template <class F>
    void onCancel(F&& function) {
        valid()->onCancel(std::make_unique<detail::CancelFunction<std::decay_t<F>>>(std::forward<F>(function)));
    }

private:
    using State = detail::ProducerState<T>;

    const std::shared_ptr<State>& valid() const {
        if (!state)
            throw std::runtime_error("Promise state isn't valid!");
        return state;
    }

    static detail::FutureStatus status(State& state) {
        const std::lock_guard<std::mutex> lock(state.mutex);
        return state.status;
    }

    void drop() noexcept {
        if (!state || status(*state) != detail::FutureStatus::Pending)
            return;
        try {
            setException(detail::makeException(std::runtime_error("Promise destroyed before it was resolved.")));
        } catch (...) {
            detail::cancelState<T>(state);
        }
    }

    std::shared_ptr<State> state;
};

} // namespace connector
