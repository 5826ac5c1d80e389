#pragma once

#include <fl/Export.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace fl::log::detail {

/// A logger's own copy of its channel's mask, kept up to date for as long as it lives, and the count of the logger's
/// statements under way.
class FL_EXPORT channel_mask {
public:
    explicit channel_mask(const std::string& channel);
    channel_mask(const channel_mask&) = delete;
    channel_mask& operator=(const channel_mask&) = delete;

    /// Masks everything out, for threads that still run when a logger with static life is destroyed, and waits for
    /// their statements under way, for a second at most.
    ~channel_mask();

    // Relaxed: a mask guards nothing, it only says what is wanted, and a statement that sees it a moment late is no
    // fault.
    bool test(std::uint32_t severity) const noexcept { return (value.load(std::memory_order_relaxed) & severity) != 0; }
    void set(std::uint32_t mask) noexcept { value.store(mask, std::memory_order_relaxed); }

    /// Counts a statement in, if logging hasn't ended and `severity` is still wanted; then leave() follows on the same
    /// thread. Boost.Log keeps one severity for each thread: that of the statement around this one is saved in `outer`
    /// and restored. Throws std::bad_alloc, and what Boost.Log throws as it is set up.
    bool enter(std::uint32_t severity, std::uintmax_t& outer);
    void leave(std::uintmax_t outer) noexcept;

    /// Whether statements of other threads are under way.
    bool usedByOthers() const noexcept;

private:
    std::atomic<std::uint32_t> value;
    std::atomic<std::uint32_t> writing{0};
};

/// One log statement, from its test of the mask to its end.
///
/// Boost.Log destroys what it writes with early when the process ends. Threads that still run then, and destructors of
/// globals, would use what is gone. So logging ends before that: statements under way are waited for, and later ones
/// write nothing.
template <class Logger>
class statement {
public:
    statement(Logger& logger, channel_mask& mask, std::uint32_t severity)
        : target(logger), counter(mask), level(severity), counted(mask.test(severity) && mask.enter(severity, outer)),
          pending(counted) {}
    statement(const statement&) = delete;
    statement& operator=(const statement&) = delete;
    ~statement() {
        if (counted)
            counter.leave(outer);
    }

    /// True once if there is anything to write.
    bool next() noexcept {
        const bool first = pending;
        pending = false;
        return first;
    }

    Logger& logger() const noexcept { return target; }
    std::uint32_t severity() const noexcept { return level; }

private:
    Logger& target;
    channel_mask& counter;
    const std::uint32_t level;
    std::uintmax_t outer = 0;
    const bool counted;
    bool pending;
};

} // namespace fl::log::detail
