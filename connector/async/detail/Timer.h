#pragma once

#include <connector/Export.h>

#include <chrono>
#include <cstddef>
#include <exception>
#include <limits>
#include <memory>

namespace connector::detail {

class TimerQueue;

/// Something that happens at a time, on the process's one timer thread.
///
/// Threads: start() once, then stop() on any thread. The timer thread starts with the first timer. It ends, and all
/// timers are released without having expired, when the process's static objects are destroyed. A timer that is started
/// later never expires.
class CONNECTOR_ASYNC_EXPORT Timer {
public:
    using Clock = std::chrono::steady_clock;

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    virtual ~Timer();

    /// Calls expired() at `when`, or soon after, and owns `timer` until then. Clock::time_point::max() means never.
    /// Throws std::bad_alloc, and std::system_error if there can be no thread; nothing has changed then. Takes the
    /// queue's mutex. The cost is at most logarithmic in the number of timers, and usually constant.
    static void start(std::shared_ptr<Timer> timer, Clock::time_point when);

    /// What a future that ran out of time fails with: one std::system_error (std::errc::timed_out) for all, so that
    /// nothing is allocated when time is up.
    static std::exception_ptr timedOut();

    /// Releases the timer, unless it wasn't started, or expired() was called or is about to be. Takes the queue's
    /// mutex.
    void stop() noexcept;

protected:
    Timer() noexcept;

private:
    friend class TimerQueue;

    /// Called on the timer thread with no lock held. Other timers wait until it returns.
    virtual void expired() = 0;

    static constexpr std::size_t nowhere() noexcept { return std::numeric_limits<std::size_t>::max(); }

    // Set before other threads know the timer. Without a started timer, stop() must not create the queue: that
    // allocates.
    bool started = false;

    // Guarded by the queue's mutex: the index in its heap.
    std::size_t place = nowhere();
};

} // namespace connector::detail
