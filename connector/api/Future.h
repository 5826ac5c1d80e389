#pragma once

#include <connector/api/detail/MakeState.h>
#include <connector/api/detail/SharedFutureState.h>

#include <atomic>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

namespace connector {

namespace detail {
struct FutureAccess;
}

/// The consumer's handle for a reply that a producer gives now or later: get() waits for it and takes it, once.
///
/// Every reply of the framework travels as a Future<std::unique_ptr<Message>>. A provider that has its answer returns
/// makeReadyFuture(), one that failed throws or returns makeExceptionalFuture(), and one that answers later keeps a
/// std::shared_ptr to the state that it built the future over, and resolves that:
///
///     auto state = std::make_shared<detail::SharedFutureState<T>>();
///     Future<T> future(state);                          // for the consumer
///     worker.post([state] { state->setValue(compute()); }); // the producer, on any thread
///
/// A Promise (connector/async/Promise.h) does the same, and fails the reply if it dies without an answer.
///
/// Ownership: the value is the producer's until it resolves, then the state's, then the consumer's. Dropping a future
/// neither cancels nor waits. Two futures may be built over one state; its value is still given out once. Threads: one
/// thread uses a Future object at a time; the producer may be on any other. Memory ordering: what the producer did
/// before it resolved is visible once get() has returned or thrown.
template <class T>
class Future {
    static_assert(!std::is_reference_v<T>,
                  "a Future can't carry a reference: use a pointer or a std::reference_wrapper");
    static_assert(!std::is_void_v<T>, "a Future carries an object: use a Future<std::monostate> where there is none");

public:
    /// A future over `state`, which it shares. A null pointer makes an invalid future.
    explicit Future(std::shared_ptr<detail::SharedFutureState<T>> state) noexcept
        : state(std::move(state)), stateValid(this->state != nullptr) {}

    /// Moving takes the state over and leaves `other` invalid.
    Future(Future&& other) noexcept : state(std::move(other.state)), stateValid(other.invalidate()) {}

    /// As the constructor. Lets go of the state that this future had.
    Future& operator=(Future&& other) noexcept;
    ~Future() { stateValid.store(false); }

    /// Whether this future has a state. Stays true after get().
    [[nodiscard]] bool valid() const noexcept { return stateValid.load(); }

    /// Blocks until the producer has resolved and returns the value, or throws the exception that the producer stored;
    /// of one that is a std::exception_ptr itself, the exception to which that refers. Works once: a second call, and
    /// one on a future with a continuation, throws std::runtime_error ("Future already returned it's value or has an
    /// associated continuation."). Also throws std::runtime_error for a future without a state ("Future state isn't
    /// valid!") and for one that was cancelled ("Future has been cancelled."). Takes the state's own mutex only. Never
    /// call it on the thread that is to resolve it.
    T get();

private:
    // For what attaches continuations, cancels, or waits otherwise than get().
    friend struct detail::FutureAccess;

    bool invalidate() noexcept {
        const bool was = stateValid.load(std::memory_order_relaxed);
        stateValid.store(false, std::memory_order_relaxed);
        return was;
    }

    std::shared_ptr<detail::SharedFutureState<T>> state;
    // Stored false as the future dies; sequentially consistent, so that a late look at a dead future is refused.
    std::atomic<bool> stateValid;
};

/// A future that is resolved with `value` already. Two allocations: the state and the cell of its value. If one fails,
/// std::bad_alloc is thrown and `value` is still the caller's. Yields the processor once, as every resolution does.
template <class T>
[[nodiscard]] Future<std::remove_reference_t<T>> makeReadyFuture(T&& value);

/// A future that is resolved with `exception` already, of the type E as given here. Throws std::bad_alloc. Yields like
/// makeReadyFuture().
template <class T, class E>
[[nodiscard]] Future<T> makeExceptionalFuture(E exception);

/// A future that is resolved with the exception being handled; otherwise as above. Call it inside a handler: outside of
/// one, what get() throws is a null std::exception_ptr.
template <class T>
[[nodiscard]] Future<T> makeExceptionalFuture();

template <class T>
Future<T>& Future<T>::operator=(Future&& other) noexcept {
    if (this != &other) {
        state = std::move(other.state);
        stateValid.store(other.invalidate(), std::memory_order_relaxed);
    }
    return *this;
}

template <class T>
T Future<T>::get() {
    if (!valid())
        detail::throwFutureInvalid();
    // Whoever owns this future may destroy it while the value is awaited.
    const std::shared_ptr<detail::SharedFutureState<T>> kept = state;
    return kept->get();
}

template <class T>
Future<std::remove_reference_t<T>> makeReadyFuture(T&& value) {
    static_assert(!std::is_reference_v<T>, "a future takes its value over: pass an rvalue");
    using Value = std::remove_reference_t<T>;
    auto state = detail::makeState<Value>();
    state->setValue(std::move(value));
    return Future<Value>(std::move(state));
}

namespace detail {

template <class T>
Future<T> makeFailedFuture(const std::exception_ptr& exception) {
    auto state = makeState<T>();
    state->setException(exception);
    return Future<T>(std::move(state));
}

} // namespace detail

template <class T, class E>
Future<T> makeExceptionalFuture(E exception) {
    return detail::makeFailedFuture<T>(detail::makeException(std::move(exception)));
}

template <class T>
Future<T> makeExceptionalFuture() {
    return detail::makeFailedFuture<T>(std::current_exception());
}

} // namespace connector
