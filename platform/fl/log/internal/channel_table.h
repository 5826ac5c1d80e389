#pragma once

#include <fl/log/severity_mask.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fl::log::detail {
class channel_mask;
}

namespace fl::log::internal {

/// The mask of a channel, and the copies that its loggers keep.
struct channel_state {
    std::uint32_t mask = defaultSeverityMask;
    std::vector<detail::channel_mask*> loggers;
};

/// All channels for which a mask was set or a logger exists.
struct channel_table {
    std::mutex mutex;
    std::map<std::string, channel_state> channels; // guarded by mutex
};

/// The library's one table. Made by the first call and never destroyed, because threads that still run when the process
/// ends may use it.
channel_table& table();

} // namespace fl::log::internal
