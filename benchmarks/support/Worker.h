#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace bench {

/// A thread that runs tasks in the order of their coming. The same one stands behind every provider that answers from
/// another thread, the framework's and the others'.
template <class Task>
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
            Task task = std::move(tasks.front());
            tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Task> tasks;
    bool ended = false;
    std::thread thread;
};

} // namespace bench
