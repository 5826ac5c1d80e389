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

/// The consumer's handle for a reply. get() waits for the reply and takes it, once:
///
///     Promise<int> promise; // connector/async/Promise.h
///     Future<int> future = promise.future();
///     worker.post([promise = std::move(promise)]() mutable { promise.setValue(compute()); }); // on any thread
///     int answer = future.get();
///
/// Every reply of the framework is a Future<std::unique_ptr<Message>>. A provider that has its answer returns
/// makeReadyFuture(). A provider that fails throws, or returns makeExceptionalFuture(). A provider that answers later
/// returns the future of a Promise.
///
/// Ownership: the producer owns the value until it resolves the future, then the state owns it, then the consumer.
/// Dropping a future neither cancels nor waits. Two futures may share one state; its value is still given out once.
/// Threads: one thread uses a Future object at a time; the producer may be on any other. Memory ordering: everything
/// that the producer did before it resolved the future is visible once get() has returned or thrown.
template <class T>
class Future {
    static_assert(!std::is_reference_v<T>,
                  "a Future can't carry a reference: use a pointer or a std::reference_wrapper");
    static_assert(!std::is_void_v<T>, "a Future carries an object: use a Future<std::monostate> where there is none");

public:
    /// A future over `state`, which it shares. A null pointer makes an invalid future.
    Future(std::shared_ptr<detail::SharedFutureState<T>> state) noexcept
        : state(std::move(state)), stateValid(this->state != nullptr) {}

    /// Takes over the state of `other` and leaves `other` invalid.
    Future(Future&& other) noexcept : state(std::move(other.state)), stateValid(other.invalidate()) {}

    /// Like the constructor. Releases the state that this future had.
    Future& operator=(Future&& other) noexcept;
    ~Future() { stateValid.store(false); }

    /// Whether this future has a state. Stays true after get().
    [[nodiscard]] bool valid() const noexcept { return stateValid.load(); }

    /// Blocks until the future is resolved and returns the value, or throws the stored exception. If the exception
    /// object is itself a std::exception_ptr, throws the exception to which that refers. Works once: a second call, and
    /// a call on a future with a continuation, throws std::runtime_error ("Future already returned it's value or has an
    /// associated continuation."). Also throws std::runtime_error for a future without a state ("Future state isn't
    /// valid!") and for a cancelled one ("Future has been cancelled."). Takes only the state's own mutex. Never call it
    /// on the thread that is to resolve the future.
    T get();

private:
    // For code that attaches continuations, cancels, or waits with a time limit.
    friend struct detail::FutureAccess;

    bool invalidate() noexcept {
        const bool was = stateValid.load(std::memory_order_relaxed);
        stateValid.store(false, std::memory_order_relaxed);
        return was;
    }

    std::shared_ptr<detail::SharedFutureState<T>> state;
    // Sequentially consistent. The destructor stores false.
    std::atomic<bool> stateValid;
};

/// A future that is already resolved with `value`. Allocates twice: the state and the cell of its value. If an
/// allocation fails, throws std::bad_alloc, and the caller still owns `value`. Yields the processor once, like every
/// resolution.
template <class T>
[[nodiscard]] Future<std::remove_reference_t<T>> makeReadyFuture(T&& value);

/// A future that is already resolved with a copy of `exception`, of type E. Throws std::bad_alloc. Yields like
/// makeReadyFuture().
template <class T, class E>
[[nodiscard]] Future<T> makeExceptionalFuture(E exception);

/// A future that is already resolved with the exception being handled; otherwise the same. Call it inside a handler:
/// outside one, get() throws a null std::exception_ptr.
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
inline T Future<T>::get() {
    if (!valid())
        detail::throwFutureInvalid();
    // The future may be destroyed during the wait.
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
