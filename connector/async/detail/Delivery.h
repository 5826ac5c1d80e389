#pragma once

#include <connector/async/detail/Forward.h>
#include <connector/async/detail/Step.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>

namespace connector::detail {

/// The state of a future that gets the outcome of another one on an executor. The first of these resolves or cancels
/// it: a task that is run, the destruction of the last task, or a failure to submit one.
template <class T>
class Delivery final : public ResultState<T> {
public:
    using ResultState<T>::ResultState;

    /// Owned by the first task, by its copies, and by the submission.
    void submitted(std::shared_ptr<ResultState<T>> self, Future<T>&& arrived, Work& loop) noexcept {
        owned = std::move(self);
        source = std::move(arrived);
        submitterLoop = &loop;
        owners.store(2, std::memory_order_relaxed);
        submitter.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    void addOwner() noexcept { owners.fetch_add(1, std::memory_order_relaxed); }
    void removeOwner() {
        // Acquires and releases the source, for a last copy on another thread.
        if (owners.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        const std::shared_ptr<ResultState<T>> last = std::move(owned);
        settleOnce([&](Future<T>&&, Work& work) { cancelResult(last, work); });
    }
    void submissionEnds() {
        removeOwner();
        submitter.store(std::thread::id(), std::memory_order_relaxed);
    }

    void deliver() {
        settleOnce(
            [this](Future<T>&& arrived, Work& work) { publish(owned, room.holdOutcomeOf(std::move(arrived)), work); });
    }
    void fail(std::exception_ptr exception) {
        settleOnce([&](Future<T>&&, Work& work) { publish(owned, room.holdException(std::move(exception)), work); });
    }

    OutcomeRoom<T> room;

private:
    // The source is released in any case: a result that kept it would also keep the source of that one, and so on.
    // If the executor runs or drops the task inside its call, the loop that submitted it continues. A chain of such
    // executors therefore needs the stack of one.
    template <class Settle>
    void settleOnce(Settle settle) {
        if (settled.exchange(true, std::memory_order_relaxed))
            return;
        Future<T> arrived = std::move(source);
        if (submitter.load(std::memory_order_relaxed) == std::this_thread::get_id())
            return settle(std::move(arrived), *submitterLoop);
        Work own;
        settle(std::move(arrived), own);
        own.run();
    }

    // Constant while there are owners, but for the source, which belongs to the task that settles.
    std::shared_ptr<ResultState<T>> owned;
    Future<T> source{nullptr};
    Work* submitterLoop = nullptr;

    std::atomic<std::uint32_t> owners{0};
    std::atomic<bool> settled{false};

    // Relaxed: the thread that is inside the executor's call. Another thread never finds its own id here, and so never
    // reads `submitterLoop`.
    std::atomic<std::thread::id> submitter{};
};

/// What an executor runs, once. Copyable, for executors that need that; if all copies are destroyed without having been
/// run, the delivery is cancelled.
template <class T>
class Task {
public:
    /// The first task of a delivery.
    explicit Task(Delivery<T>& delivery) noexcept : delivery(&delivery) {}
    Task(const Task& other) noexcept : delivery(other.delivery) {
        if (delivery)
            delivery->addOwner();
    }
    Task(Task&& other) noexcept : delivery(std::exchange(other.delivery, nullptr)) {}
    Task& operator=(Task other) noexcept {
        std::swap(delivery, other.delivery);
        return *this;
    }
    ~Task() {
        if (delivery)
            delivery->removeOwner();
    }

    void operator()() const { delivery->deliver(); }

private:
    Delivery<T>* delivery;
};

template <class Executor, class Task, class = void>
struct Executes : std::false_type {};
template <class Executor, class Task>
struct Executes<Executor, Task, std::void_t<decltype(std::declval<Executor&>().execute(std::declval<Task>()))>>
    : std::true_type {};

template <class Executor, class Task, class = void>
struct Posts : std::false_type {};
template <class Executor, class Task>
struct Posts<Executor, Task, std::void_t<decltype(std::declval<Executor&>().post(std::declval<Task>()))>>
    : std::true_type {};

template <class Executor, class Task>
void submit(Executor& executor, Task task) {
    if constexpr (Executes<Executor, Task>::value)
        executor.execute(std::move(task));
    else if constexpr (Posts<Executor, Task>::value)
        executor.post(std::move(task));
    else if constexpr (std::is_invocable_v<Executor&, Task>)
        executor(std::move(task));
    else
        static_assert(!sizeof(Executor),
                      "an executor must have execute(task) or post(task), or be a function that takes a task");
}
template <class Executor, class Task>
void submit(std::reference_wrapper<Executor>& executor, Task task) {
    submit(executor.get(), std::move(task));
}

/// The body of a link that submits a delivery to an executor.
template <class T, class Executor>
class Submit {
public:
    Submit(std::shared_ptr<Delivery<T>> result, Executor executor)
        : result(std::move(result)), executor(std::move(executor)) {}

    void operator()(Future<T>&& source, bool cancelled, Work& work) {
        if (cancelled)
            return cancelResult<T>(result, work);
        result->submitted(result, std::move(source), work);
        try {
            submit(executor, Task<T>(*result));
        } catch (...) {
            result->fail(std::current_exception());
        }
        result->submissionEnds();
    }
    void refuse(Work& work) { publish<T>(result, result->room.holdRefusal(), work); }
    const Waiter* waiter() const noexcept { return result.get(); }

    const std::shared_ptr<Delivery<T>> result;

private:
    Executor executor;
};

/// A future and an executor, not yet attached to each other.
template <class T, class Executor>
class [[nodiscard]] Via {
public:
    Via(Future<T>&& future, Executor executor)
        : link(std::make_unique<SubmitLink>(std::make_shared<Delivery<T>>(upstreamOf(FutureAccess::state(future))),
                                            std::move(executor))),
          source(std::move(future)) {}

    /// The future whose continuation runs on the executor: attach that before start().
    Future<T> delivered() const { return Future<T>(link->body.result); }

    void start(Work& work) { attachForward(FutureAccess::take(std::move(source)), std::move(link), work); }
    void start() {
        Work work;
        start(work);
        work.run();
    }

    /// Gives the source back if start() wasn't called.
    Future<T> release() { return std::move(source); }

    operator Future<T>() && {
        Future<T> future = delivered();
        start();
        return future;
    }

private:
    using SubmitLink = LinkTo<T, Submit<T, Executor>>;

    std::unique_ptr<SubmitLink> link;
    Future<T> source;
};

template <class T, class Executor, class Attach>
auto operator|(Via<T, Executor>&& routed, Step<Attach>&& step) {
    auto result = step.attach(routed.delivered());
    routed.start();
    return result;
}

} // namespace connector::detail
