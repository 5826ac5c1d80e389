#include <connector/async/detail/Timer.h>

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <new>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace connector::detail {

/// The timers of the process, in a binary heap. Each timer knows its place in it, so that it can be stopped. A timer
/// with a late deadline is added and removed near the heap's end, in constant time.
class TimerQueue {
public:
    static TimerQueue& instance();

    void start(std::shared_ptr<Timer> timer, Timer::Clock::time_point when) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (ended)
            return;
        if (!thread.joinable())
            startThread();
        heap.push_back({when, std::move(timer)});
        moveUp(heap.size() - 1);
        if (when < wakesAt)
            changed.notify_one();
    }

    const std::exception_ptr& timedOut() const noexcept { return exception; }

    /// Returns the timer, so that its last owner can destroy it without the lock.
    std::shared_ptr<Timer> stop(Timer& timer) noexcept {
        const std::lock_guard<std::mutex> lock(mutex);
        return timer.place == Timer::nowhere() ? nullptr : remove(timer.place);
    }

    void end() {
        std::vector<Entry> released;
        std::unique_lock<std::mutex> lock(mutex);
        ended = true;
        for (const Entry& entry : heap)
            entry.timer->place = Timer::nowhere();
        heap.swap(released);
        changed.notify_one();
        if (!thread.joinable())
            return;
        // An expired timer may have ended the process, or may never return.
        const bool here = thread.get_id() == std::this_thread::get_id();
        if (!here && changed.wait_for(lock, std::chrono::seconds(1), [this] { return stopped; })) {
            lock.unlock();
            thread.join();
        } else {
            thread.detach();
        }
    }

private:
    using Time = Timer::Clock::time_point;

    struct Entry {
        Time when;
        std::shared_ptr<Timer> timer;
    };

    // The thread blocks all signals: their handlers run on the host's threads.
    void startThread() {
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        try {
            thread = std::thread([this] { run(); });
        } catch (...) {
            pthread_sigmask(SIG_SETMASK, &before, nullptr);
            throw;
        }
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }

    void run() {
        std::unique_lock<std::mutex> lock(mutex);
        while (!ended) {
            const Time next = heap.empty() ? Time::max() : heap.front().when;
            if (next > Timer::Clock::now()) {
                wakesAt = next;
                if (next == Time::max())
                    changed.wait(lock);
                else
                    changed.wait_until(lock, next);
                wakesAt = Time::min();
                continue;
            }
            std::shared_ptr<Timer> timer = remove(0);
            lock.unlock();
            timer->expired();
            timer.reset();
            lock.lock();
        }
        stopped = true;
        changed.notify_all();
    }

    void put(std::size_t place, Entry&& entry) noexcept {
        entry.timer->place = place;
        heap[place] = std::move(entry);
    }

    void moveUp(std::size_t place) noexcept {
        Entry moved = std::move(heap[place]);
        for (; place > 0 && moved.when < heap[(place - 1) / 2].when; place = (place - 1) / 2)
            put(place, std::move(heap[(place - 1) / 2]));
        put(place, std::move(moved));
    }

    void moveDown(std::size_t place) noexcept {
        Entry moved = std::move(heap[place]);
        for (std::size_t child = 2 * place + 1; child < heap.size(); child = 2 * place + 1) {
            if (child + 1 < heap.size() && heap[child + 1].when < heap[child].when)
                ++child;
            if (!(heap[child].when < moved.when))
                break;
            put(place, std::move(heap[child]));
            place = child;
        }
        put(place, std::move(moved));
    }

    std::shared_ptr<Timer> remove(std::size_t place) noexcept {
        std::shared_ptr<Timer> removed = std::move(heap[place].timer);
        removed->place = Timer::nowhere();
        Entry last = std::move(heap.back());
        heap.pop_back();
        if (place < heap.size()) {
            put(place, std::move(last));
            moveUp(place);
            moveDown(place);
        }
        return removed;
    }

    const std::exception_ptr exception =
        std::make_exception_ptr(std::system_error(std::make_error_code(std::errc::timed_out)));

    // Guards everything below; only this class's own code runs under it.
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Entry> heap;
    Time wakesAt = Time::min(); // when the thread looks next; the past while it is awake
    std::thread thread;
    bool ended = false;
    bool stopped = false; // the thread is about to return
};

// Never destroyed: threads that still run when the process ends may use it.
TimerQueue& TimerQueue::instance() {
    struct End {
        explicit End(TimerQueue& queue) : queue(queue) {}
        End(const End&) = delete;
        End& operator=(const End&) = delete;
        ~End() { queue.end(); }
        TimerQueue& queue;
    };
    alignas(TimerQueue) static unsigned char storage[sizeof(TimerQueue)];
    static TimerQueue& queue = *new (storage) TimerQueue;
    static const End end(queue);
    return queue;
}

std::exception_ptr Timer::timedOut() {
    return TimerQueue::instance().timedOut();
}

Timer::Timer() noexcept = default;
Timer::~Timer() = default;

void Timer::start(std::shared_ptr<Timer> timer, Clock::time_point when) {
    if (when == Clock::time_point::max())
        return;
    timer->started = true;
    TimerQueue::instance().start(std::move(timer), when);
}

void Timer::stop() noexcept {
    if (started)
        TimerQueue::instance().stop(*this); // destroys the returned pointer, without the lock
}

} // namespace connector::detail
