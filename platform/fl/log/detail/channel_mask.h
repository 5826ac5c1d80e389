#pragma once

#include <fl/Export.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace fl::log::detail {

/// A logger's own copy of its channel's mask, kept up to date for as long as it lives.
class FL_EXPORT channel_mask {
public:
    explicit channel_mask(const std::string& channel);
    channel_mask(const channel_mask&) = delete;
    channel_mask& operator=(const channel_mask&) = delete;
    ~channel_mask();

    // Relaxed: a mask guards nothing, it only says what is wanted, and a statement that sees it a moment late is no
    // fault.
    bool test(std::uint32_t severity) const noexcept { return (value.load(std::memory_order_relaxed) & severity) != 0; }
    void set(std::uint32_t mask) noexcept { value.store(mask, std::memory_order_relaxed); }

private:
    std::atomic<std::uint32_t> value;
};

/// Counts a statement in; false when logging has ended. Each that was counted in is counted out on its own thread.
FL_EXPORT bool enter_statement() noexcept;
FL_EXPORT void leave_statement() noexcept;

/// A log statement from its test of the mask to its end.
///
/// Boost.Log makes what it writes with when the first record is written, and destroys it early when the process ends.
/// Whoever logs later, from the destructor of a global or from a thread that still runs, would use what is gone. So
/// logging ends before that: statements under way are waited for, and later ones write nothing.
class statement {
public:
    statement(const channel_mask& mask, std::uint32_t severity) noexcept
        : counted(mask.test(severity) && enter_statement()) {}
    statement(const statement&) = delete;
    statement& operator=(const statement&) = delete;
    ~statement() {
        if (counted)
            leave_statement();
    }

    /// Whether there is anything to write.
    explicit operator bool() const noexcept { return counted; }

private:
    const bool counted;
};

} // namespace fl::log::detail
