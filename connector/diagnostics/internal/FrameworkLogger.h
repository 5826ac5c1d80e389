#pragma once

#include <fl/log/basic_diagnostic_logger.h>

#include <cstdint>

namespace connector::internal {

/// The framework's one logger, on the channel "connector::framework". Exists while the library is loaded.
extern fl::log::basic_diagnostic_logger<char> frameworkLogger;

/// The severities in use: normal events, exceptions of providers, refused registrations and messages.
constexpr std::uint32_t chatter = 0x8;
constexpr std::uint32_t warning = 0x100;
constexpr std::uint32_t error = 0x200;

} // namespace connector::internal

/// Writes one record on the framework's channel. Place an expensive piece inside the statement, so that it is evaluated
/// only for a record that is written.
#define FRAMEWORK_LOG(severity) FL_LOG(::connector::internal::frameworkLogger, ::connector::internal::severity)
