#include <fl/log/detail/channel_mask.h>
#include <fl/log/internal/channel_table.h>
#include <fl/log/severity_mask.h>

#include <mutex>

namespace fl::log {

void setEnabledSeverityMask(const std::string& channel, std::uint32_t mask) {
    const std::lock_guard<std::mutex> lock(internal::table().mutex);
    internal::channel_state& state = internal::table().channels[channel];
    state.mask = mask;
    for (detail::channel_mask* logger : state.loggers)
        logger->set(mask);
}

std::uint32_t enabledSeverityMask(const std::string& channel) {
    const std::lock_guard<std::mutex> lock(internal::table().mutex);
    const auto found = internal::table().channels.find(channel);
    return found == internal::table().channels.end() ? defaultSeverityMask : found->second.mask;
}

} // namespace fl::log
