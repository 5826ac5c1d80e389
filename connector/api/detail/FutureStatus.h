#pragma once

#include <connector/Export.h>

#include <cstdint>

namespace connector::detail {

/// The status of a reply. Leaves Pending once and never changes again.
enum class FutureStatus : std::uint32_t {
    Pending = 0,      ///< not resolved yet
    HasValue = 1,     ///< resolved with a value
    HasException = 2, ///< resolved with an exception
    Cancelled = 3,    ///< cancelled by the consumer; there will be no outcome
};

} // namespace connector::detail
