#pragma once

#include <connector/api/detail/FutureContinuation.h>
#include <connector/api/detail/FutureErrors.h>
#include <connector/api/detail/FutureStatus.h>

#include <cassert>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace connector::detail {

struct FutureAccess;

template <class T>
class ResultState;

/// The state that the producer and the consumer of one T share. The producer resolves it once, and the consumer takes
/// the value once:
///
///     auto state = std::make_shared<SharedFutureState<T>>();
///     Future<T> future(state);    // for the consumer
///     state->setValue(compute()); // the producer, on any thread
///
/// The producer is the code that calls setValue() or setException(). The consumer is the code that calls get(), or the
/// one continuation. The resolving thread is the one on which the producer's call runs. All hold the state by
/// std::shared_ptr, made by std::make_shared only, and it is destroyed with the last of these pointers.
///
/// Each cell gives the next status, then the exception thrown, in quotation marks, then the owner of the value or the
/// stored exception.
///
/// | status       | setValue, setException  | first get            | attach a continuation | cancel    | destruction  |
/// |--------------|-------------------------|----------------------|-----------------------|-----------|--------------|
/// | Pending      | HasValue, HasException; | waits until the      | Pending; get() throws | Cancelled | -            |
/// |              | the state               | status changes       | "already returned"    |           |              |
/// | HasValue     | same, "already          | same; the caller     | same; the state until | -         | the value is |
/// |              | resolved"; the caller   | (cell: an empty T)   | the attaching code    |           | destroyed if |
/// |              |                         |                      | acts                  |           | not taken    |
/// | HasException | same, "already          | same, the exception; | as HasValue           | -         | exception is |
/// |              | resolved"; the caller   | the state            |                       |           | released     |
/// | Cancelled    | same, ignored; the      | same, "cancelled"    | same; never run       | -         | -            |
/// |              | caller                  |                      |                       |           |              |
///
/// A second get(), in any status, throws "already returned". Resolving a pending state runs its continuation, exactly
/// once, and wakes a waiter. Cancelling only wakes a waiter. A continuation that has never run is destroyed with the
/// state, after the value.
///
/// Memory ordering: everything that the producer did before it resolved the state is visible to the consumer once get()
/// has returned or thrown, and inside the continuation.
///
/// The fields are public for code that attaches a continuation or cancels, which it does under `mutex`. Attaching
/// stores the continuation in its slot. Cancelling changes Pending to Cancelled and then calls notifyResolved(). All
/// other code uses the operations.
template <class T>
class SharedFutureState : public std::enable_shared_from_this<SharedFutureState<T>> {
public:
    SharedFutureState() = default;
    SharedFutureState(const SharedFutureState&) = delete;
    SharedFutureState& operator=(const SharedFutureState&) = delete;
    ~SharedFutureState();

    /// Resolves with `value`, runs the continuation, wakes the waiter and yields the processor once. A cancelled state
    /// ignores the value. Throws std::runtime_error ("Promise already resolved.") if the state is resolved, and
    /// std::bad_alloc. In these three cases nothing has changed and the caller still owns `value`. An exception of the
    /// continuation leaves this call; the state is then resolved.
    ///
    /// The caller holds a std::shared_ptr to the state until the call has returned: the consumer may release the state
    /// as soon as it sees the value, and the call still uses it then.
    void setValue(T&& value);

    /// Resolves with a copy of `exception`; otherwise like setValue(). If the exception object is itself a
    /// std::exception_ptr, the consumer gets the exception to which that refers.
    void setException(const std::exception_ptr& exception);

    /// Blocks until the state is no longer pending, then returns the value or throws the stored exception. Throws
    /// std::runtime_error: "Future already returned it's value or has an associated continuation." for a second call
    /// and for a state with a continuation, "Future has been cancelled.", or "Invalid Future state reached." for a
    /// status that doesn't exist.
    T get();

    /// Publishes a change of status: runs and destroys the continuation of a resolved state, wakes the waiter and
    /// yields the processor once. A state that isn't resolved keeps its continuation. Entered with `lock` on `mutex`;
    /// returns with it released. No host code runs under it.
    void notifyResolved(std::unique_lock<std::mutex>& lock);

    /// Guards everything below. Not recursive.
    std::mutex mutex;

    /// Wakes get() when `status` leaves Pending. There is at most one waiter, because `retrieved` refuses a second.
    std::condition_variable condition;

    /// The cell that holds the outcome. It is allocated with the outcome and freed by the destructor. It comes from the
    /// global operator new and returns to the global operator delete, even if T has operators of its own.
    union Outcome {
        T* value;                      ///< owned with HasValue
        std::exception_ptr* exception; ///< owned with HasException
    };

    /// Null while `status` is neither HasValue nor HasException.
    Outcome outcome{nullptr};

    /// The slot of the one continuation, empty if there is none.
    std::unique_ptr<FutureContinuation<T>> continuation;

    /// Changes from Pending to another status, once.
    FutureStatus status = FutureStatus::Pending;

    /// A mark for code that attaches continuations. The framework never reads or sets it, and clears it together with
    /// `retrieved`.
    bool continuationFlag = false;

    /// Whether get() was called. Cleared before a continuation runs, so that its future can take the value.
    bool retrieved = false;

private:
    friend struct FutureAccess;
    friend class ResultState<T>;

    /// For ResultState only, so that `ofResult` is true for no other class.
    struct OfResult {};
    explicit SharedFutureState(OfResult /*unused*/) noexcept : ofResult(true) {}

    /// Whether this is a ResultState.
    const bool ofResult = false;

    /// Claims the value for the caller; throws if it is already claimed. Entered with the mutex held.
    void claim();

    /// Takes the outcome of a state that isn't pending, for get(). Entered with the mutex held.
    T take();

    /// Whether an outcome may be stored; false if it is to be ignored. Throws if there already is one.
    bool acceptsOutcome() const;

    /// Takes the continuation out, releases the lock and runs it. Not inlined, so that its code isn't copied into every
    /// resolution.
    [[gnu::noinline]] void runContinuation(std::unique_lock<std::mutex> lock);
};

template <class T>
SharedFutureState<T>::~SharedFutureState() {
    // Another thread may have used the state last; the mutex makes its changes visible here.
    const std::lock_guard<std::mutex> lock(mutex);
    if (status == FutureStatus::HasValue)
        ::delete outcome.value;
    else if (status == FutureStatus::HasException)
        delete outcome.exception;
    else
        assert(!outcome.value);
}

template <class T>
inline void SharedFutureState<T>::setValue(T&& value) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!acceptsOutcome())
        return;
    outcome.value = ::new T(std::move(value));
    status = FutureStatus::HasValue;
    notifyResolved(lock);
}

template <class T>
void SharedFutureState<T>::setException(const std::exception_ptr& exception) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!acceptsOutcome())
        return;
    outcome.exception = new std::exception_ptr(exception);
    status = FutureStatus::HasException;
    notifyResolved(lock);
}

template <class T>
inline bool SharedFutureState<T>::acceptsOutcome() const {
    if (status == FutureStatus::Pending)
        return true;
    if (status == FutureStatus::Cancelled)
        return false;
    throwPromiseResolved();
}

template <class T>
inline void SharedFutureState<T>::notifyResolved(std::unique_lock<std::mutex>& lock) {
    assert(lock.owns_lock() && lock.mutex() == &mutex);
    if (continuation && (status == FutureStatus::HasValue || status == FutureStatus::HasException))
        runContinuation(std::move(lock));
    else
        lock.unlock();
    condition.notify_one();
    std::this_thread::yield();
}

template <class T>
void SharedFutureState<T>::runContinuation(std::unique_lock<std::mutex> lock) {
    const std::unique_ptr<FutureContinuation<T>> detached = std::move(continuation);
    continuationFlag = false;
    retrieved = false;
    lock.unlock();
    Future<T> future(this->shared_from_this());
    detached->invoke(std::move(future));
}

template <class T>
inline void SharedFutureState<T>::claim() {
    if (retrieved || continuation)
        throwFutureRetrieved();
    retrieved = true;
}

template <class T>
inline T SharedFutureState<T>::take() {
    switch (status) {
    case FutureStatus::HasValue:
        return std::move(*outcome.value);
    case FutureStatus::HasException:
        rethrowOutcome(*outcome.exception);
    case FutureStatus::Cancelled:
        throwFutureCancelled();
    default:
        throwFutureCorrupt();
    }
}

template <class T>
inline T SharedFutureState<T>::get() {
    std::unique_lock<std::mutex> lock(mutex);
    claim();
    condition.wait(lock, [this] { return status != FutureStatus::Pending; });
    return take();
}

} // namespace connector::detail
