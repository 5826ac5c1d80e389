#pragma once

#include <fl/log/detail/channel_mask.h>

#include <cstdint>

namespace fl::log::detail {

/// One log statement, from its test of the mask to its end. FL_LOG makes one for each record.
///
/// When the process ends, Boost.Log destroys early the objects with which it writes. Threads that still run and
/// destructors of globals would use destroyed objects. Logging therefore ends before that: statements under way are
/// waited for, and later ones write nothing.
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

    /// True once, if a record is to be written.
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
