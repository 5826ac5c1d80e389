#pragma once

#include <connector/Export.h>

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace connector {

class Message;

template <class T>
class Future;

namespace detail {

struct FutureAccess;

template <class T>
class ResultState;

/// What has come of a reply. Leaves Pending once, and never changes again.
enum class FutureStatus : std::uint32_t {
    Pending = 0,      ///< nothing so far
    HasValue = 1,     ///< resolved with a value
    HasException = 2, ///< resolved with an exception
    Cancelled = 3,    ///< given up by the consumer; there will be no outcome
};

// What a state throws, apart from the type that it carries.
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureInvalid();
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureRetrieved();
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureCancelled();
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureCorrupt();
[[noreturn]] CONNECTOR_API_EXPORT void throwPromiseResolved();

/// Rethrows a stored exception. One that is itself a std::exception_ptr stands for the exception to which it refers; a
/// null one refers to nothing and is thrown as it is.
[[noreturn]] CONNECTOR_API_EXPORT void rethrowOutcome(std::exception_ptr exception);

/// What a state runs once when it is resolved. Owned by the state until then, by the resolving call afterwards.
template <class T>
class FutureContinuation {
public:
    FutureContinuation(const FutureContinuation&) = delete;
    FutureContinuation& operator=(const FutureContinuation&) = delete;
    virtual ~FutureContinuation() = default;

    /// Receives the resolved future, which it may take the value from; the caller destroys it afterwards. Runs on the
    /// resolving thread with no lock of the state held. What it throws leaves the setValue() or setException() that ran
    /// it.
    virtual void invoke(Future<T>&& future) = 0;

protected:
    FutureContinuation() = default;
};

/// What a producer and a consumer of one T share: resolved once by the producer, taken once by the consumer.
///
/// The producer is whoever calls setValue() or setException(); the consumer is whoever calls get(), or the one
/// continuation. The resolving thread is the one on which the producer's call runs. Producers and consumers hold the
/// state by std::shared_ptr (it is made by std::make_shared only), and it dies with the last of them.
///
/// Each cell gives the next status, then what is thrown in quotation marks, then who owns the value or the exception.
///
/// | status       | setValue, setException  | first get            | attach a continuation | cancel    | destruction  |
/// |--------------|-------------------------|----------------------|-----------------------|-----------|--------------|
/// | Pending      | HasValue, HasException; | waits until the      | Pending; get() throws | Cancelled | -            |
/// |              | the state               | status changes       | "already returned"    |           |              |
/// | HasValue     | same, "already          | same; the caller     | same; the state until | -         | value dies   |
/// |              | resolved"; the caller   | (cell: an empty T)   | whoever attaches acts |           | if not taken |
/// | HasException | same, "already          | same, the exception; | as HasValue           | -         | exception    |
/// |              | resolved"; the caller   | the state            |                       |           | is released  |
/// | Cancelled    | same, ignored; the      | same, "cancelled"    | same; never run       | -         | -            |
/// |              | caller                  |                      |                       |           |              |
///
/// A further get(), in any status, throws "already returned". Resolving a pending state runs the continuation that is
/// attached to it, exactly once, and wakes a waiter; cancelling only wakes. A continuation that was never run dies with
/// the state, after the value.
///
/// Memory ordering: all that the producer did before it resolved is visible to the consumer once get() has returned or
/// thrown, and inside the continuation.
///
/// The fields are public for whoever attaches a continuation or cancels; both happen under `mutex`. Attaching puts the
/// continuation into its slot. Cancelling moves Pending to Cancelled and then calls notifyResolved(). Everybody else
/// uses the operations.
template <class T>
class SharedFutureState : public std::enable_shared_from_this<SharedFutureState<T>> {
public:
    SharedFutureState() = default;
    SharedFutureState(const SharedFutureState&) = delete;
    SharedFutureState& operator=(const SharedFutureState&) = delete;
    ~SharedFutureState();

    /// Resolves with `value`, runs the continuation if one is attached, wakes the waiter and yields the processor once.
    /// A cancelled state ignores it. Throws std::runtime_error ("Promise already resolved.") when the state is
    /// resolved, and std::bad_alloc; in these cases, and when it was ignored, nothing has changed and `value` is still
    /// the caller's. What the continuation throws passes on; the state is resolved by then and `value` taken.
    ///
    /// The caller holds a std::shared_ptr to the state until the call has returned: the consumer may let go of the
    /// state as soon as it sees the value, which is before the call is done with it.
    void setValue(T&& value);

    /// Resolves with a copy of `exception`; otherwise as setValue(). If the exception object is a std::exception_ptr in
    /// turn, the consumer gets the exception to which that refers.
    void setException(const std::exception_ptr& exception);

    /// Blocks until the state is no longer pending, then takes the value, or throws what the producer stored. Throws
    /// std::runtime_error: "Future already returned it's value or has an associated continuation." when the value was
    /// asked for before or belongs to a continuation, "Future has been cancelled.", or "Invalid Future state reached."
    /// for a status that doesn't exist.
    T get();

    /// Hands a change of status on to whoever waits for it: runs and drops the continuation of a resolved state, or
    /// leaves that of any other where it is; wakes the waiter; yields the processor once. Entered with `lock` on
    /// `mutex`, returns with it released; no host code runs under it.
    void notifyResolved(std::unique_lock<std::mutex>& lock);

    /// Guards everything below. Not recursive.
    std::mutex mutex;

    /// What get() waits on until `status` leaves Pending. There is one waiter at most, since `retrieved` refuses a
    /// second.
    std::condition_variable condition;

    /// The cell that holds the outcome, allocated when there is one and freed by the destructor. `status` says which
    /// member owns it: HasValue or HasException; in every other status there is none. The cell comes from the global
    /// operator new and returns to the global operator delete, also for a T with operators of its own.
    union Outcome {
        T* value;                      ///< owned with HasValue
        std::exception_ptr* exception; ///< owned with HasException
    };

    /// See Outcome.
    Outcome outcome{nullptr};

    /// The slot of the one continuation, empty when there is none.
    std::unique_ptr<FutureContinuation<T>> continuation;

    /// Moves from Pending to one of the others, once.
    FutureStatus status = FutureStatus::Pending;

    /// For code that attaches continuations, to mark a state with. The framework never reads or sets it; it is cleared
    /// together with `retrieved`.
    bool continuationFlag = false;

    /// Whether get() was called. Cleared when a continuation is run, so that its future can take the value.
    bool retrieved = false;

private:
    friend struct FutureAccess;
    friend class ResultState<T>;

    /// For ResultState alone: no other code can make a state that is taken for one.
    struct OfResult {};
    explicit SharedFutureState(OfResult /*unused*/) noexcept : ofResult(true) {}

    /// Whether this is a ResultState.
    const bool ofResult = false;

    /// Reserves the outcome for the caller; throws when it was reserved before. Entered with the mutex held.
    void claim();

    /// Takes the outcome of a state that isn't pending, as get() gives it. Entered with the mutex held.
    T take();

    /// Whether an outcome may be stored; false when it is to be ignored. Throws when there is one already.
    bool acceptsOutcome() const;

    /// Takes the continuation out, releases the lock and runs it. Not in line: replies without one don't carry its
    /// code.
    [[gnu::noinline]] void runContinuation(std::unique_lock<std::mutex> lock);
};

template <class T>
SharedFutureState<T>::~SharedFutureState() {
    // The last owner may be another thread than the one that touched the state before it.
    const std::lock_guard<std::mutex> lock(mutex);
    if (status == FutureStatus::HasValue)
        ::delete outcome.value;
    else if (status == FutureStatus::HasException)
        delete outcome.exception;
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
    outcome.exception = new std::exception_ptr(exception); // NOLINT(bugprone-throw-keyword-missing): it is stored
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

// What destroys a state, or a stored exception, is code of the module that made it. For replies, and for the usual
// exceptions, that is this library, so that they outlive a plugin that answered with them.

/// A new state, pending.
template <class T>
std::shared_ptr<SharedFutureState<T>> makeState() {
    return std::make_shared<SharedFutureState<T>>();
}

extern template CONNECTOR_API_EXPORT std::shared_ptr<SharedFutureState<std::unique_ptr<Message>>> makeState();

/// `exception` as something to store.
template <class E>
std::exception_ptr makeException(E exception) {
    return std::make_exception_ptr(std::move(exception));
}

extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::logic_error);
extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::invalid_argument);
extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::out_of_range);
extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::runtime_error);

} // namespace detail
} // namespace connector
