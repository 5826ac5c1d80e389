#pragma once

#include <fl/log/basic_diagnostic_logger.h>

#include <cstdint>

namespace connector::internal {

/// The framework's one logger, on the channel "connector::framework". Lives from load to unload.
extern fl::log::basic_diagnostic_logger<char> frameworkLogger;

/// The severities in use: what happens, what was survived, what was refused.
constexpr std::uint32_t chatter = 0x8;
constexpr std::uint32_t warning = 0x100;
constexpr std::uint32_t error = 0x200;

} // namespace connector::internal

/// Writes one record on the framework's channel. A piece that costs something stands inside the statement, so that it
/// is evaluated only for a record that is written.
#define FRAMEWORK_LOG(severity) FL_LOG(::connector::internal::frameworkLogger, ::connector::internal::severity)
