#pragma once

#include <fl/Export.h>

#include <cstdint>
#include <string>

namespace fl::log {

/// The mask of a channel for which none was set: warnings and errors.
constexpr std::uint32_t defaultSeverityMask = 0x300;

/// Sets the severities that the loggers of `channel` write: those whose bit is set in `mask`. Takes effect at once in
/// existing loggers and is kept for later ones. Any thread; takes the library's own lock. Throws std::bad_alloc;
/// nothing has changed then.
FL_EXPORT void setEnabledSeverityMask(const std::string& channel, std::uint32_t mask);

/// The mask last set for `channel`, or the default. Any thread; takes the library's own lock.
FL_EXPORT std::uint32_t enabledSeverityMask(const std::string& channel);

} // namespace fl::log
