#pragma once

#include <fl/Export.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace fl::log::detail {

/// A logger's own copy of its channel's mask, updated as long as the logger exists, and the count of the logger's
/// statements under way.
class FL_EXPORT channel_mask {
public:
    explicit channel_mask(const std::string& channel);
    channel_mask(const channel_mask&) = delete;
    channel_mask& operator=(const channel_mask&) = delete;

    /// Masks out all severities, for threads that still use a logger with static lifetime, and waits at most a second
    /// for their statements under way.
    ~channel_mask();

    // Relaxed: a mask guards no other data, and a statement may see a change a moment late.
    bool test(std::uint32_t severity) const noexcept { return (value.load(std::memory_order_relaxed) & severity) != 0; }
    void set(std::uint32_t mask) noexcept { value.store(mask, std::memory_order_relaxed); }

    /// Counts a statement and returns true, if logging hasn't ended and `severity` is still enabled; leave() must then
    /// follow on the same thread. Boost.Log keeps one severity for each thread: that of an enclosing statement is saved
    /// in `outer` and restored by leave(). Throws std::bad_alloc and exceptions of Boost.Log's setup.
    bool enter(std::uint32_t severity, std::uintmax_t& outer);
    void leave(std::uintmax_t outer) noexcept;

    /// Whether other threads have statements under way.
    bool usedByOthers() const noexcept;

private:
    std::atomic<std::uint32_t> value;
    std::atomic<std::uint32_t> writing{0};
};

} // namespace fl::log::detail
