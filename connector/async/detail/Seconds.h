#pragma once

#include <connector/Export.h>

#include <chrono>
#include <cmath>
#include <stdexcept>

namespace connector::detail {

/// Represents any duration of any clock closely enough; conversions from it round up.
using Seconds = std::chrono::duration<long double>;

inline void rejectNaN(Seconds time) {
    if (std::isnan(time.count()))
        throw std::invalid_argument("Time limit can't be NaN.");
}

/// `from` plus `by`, at most the clock's maximum.
template <class Clock>
typename Clock::time_point later(typename Clock::time_point from, Seconds by) {
    // The margin of a second allows for the rounding of the sum.
    if (by + Seconds(1) >= Seconds(Clock::time_point::max() - from))
        return Clock::time_point::max();
    return from + std::chrono::ceil<typename Clock::duration>(by);
}

} // namespace connector::detail
