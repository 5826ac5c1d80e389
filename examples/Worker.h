#pragma once

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

/// A thread that runs tasks in the order in which they are posted. Its destructor runs the tasks that are left and
/// joins the thread.
///
///     Worker<> worker;
///     worker.post(std::packaged_task<void()>([promise = std::move(promise)]() mutable { promise.setValue(42); }));
///
/// The host owns the worker, not the providers that post to it: a provider's stop() and destructor may run under the
/// connector's lock, and a task may be waiting for this lock.
template <class Task = std::packaged_task<void()>>
class Worker {
public:
    Worker() : thread([this] { run(); }) {}
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker() {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ended = true;
        }
        changed.notify_one();
        thread.join();
    }

    /// Adds a task. Any thread may call it. No task runs under the worker's lock.
    void post(Task task) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            tasks.push_back(std::move(task));
        }
        changed.notify_one();
    }

private:
    void run() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return ended || !tasks.empty(); });
            if (tasks.empty())
                return;
            {
                Task task = std::move(tasks.front());
                tasks.pop_front();
                lock.unlock();
                task();
            }
            lock.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Task> tasks; // guarded by mutex
    bool ended = false;     // guarded by mutex
    std::thread thread;
};
