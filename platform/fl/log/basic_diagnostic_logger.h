#pragma once

/// @file
/// A logger with a mask of enabled severities, and FL_LOG, which writes records with it.

#include <fl/log/detail/channel_mask.h>
#include <fl/log/detail/statement.h>
#include <fl/log/severity_mask.h>

#include <boost/log/detail/light_rw_mutex.hpp>
#include <boost/log/keywords/channel.hpp>
#include <boost/log/sources/basic_logger.hpp>
#include <boost/log/sources/channel_feature.hpp>
#include <boost/log/sources/features.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_feature.hpp>
#include <boost/log/sources/threading_models.hpp>
#include <boost/log/utility/strictest_lock.hpp>
#include <boost/preprocessor/cat.hpp>

#include <cstdint>
#include <string>

namespace fl::log {

/// A Boost.Log logger for diagnostics that writes only the enabled severities of its channel. FL_LOG writes a record:
///
///     fl::log::basic_diagnostic_logger<char> logger("channel");
///     FL_LOG(logger, 0x100) << "text";
///
/// A record has the attributes "Channel" (std::string) and "Severity" (std::uint32_t, one bit).
///
/// Threads: any number at a time. Opening a record takes the logger's lock exclusively; formatting it and passing it to
/// the sinks happens outside that lock. Sinks run on the thread that logs. Logging ends before the process does:
/// records of threads that still run then, and of destructors of globals, aren't written. The destructor of a logger
/// waits at most a second for its statements under way on other threads.
template <class CharT>
class basic_diagnostic_logger : public boost::log::sources::basic_composite_logger<
                                    CharT, basic_diagnostic_logger<CharT>,
                                    boost::log::sources::multi_thread_model<boost::log::aux::light_rw_mutex>,
                                    boost::log::sources::features<boost::log::sources::severity<std::uint32_t>,
                                                                  boost::log::sources::channel<std::string>>> {
public:
    /// A logger of `channel` with that channel's mask, or the default. Throws std::bad_alloc.
    explicit basic_diagnostic_logger(const std::string& channel)
        : basic_diagnostic_logger::logger_base(boost::log::keywords::channel = channel), enabledSeverityMask(channel) {}
    basic_diagnostic_logger(const basic_diagnostic_logger&) = delete;
    basic_diagnostic_logger& operator=(const basic_diagnostic_logger&) = delete;

    /// Whether `severity` is enabled. One relaxed load and a bit test.
    bool enabled(std::uint32_t severity) const noexcept { return enabledSeverityMask.test(severity); }

    /// Begins a statement, for FL_LOG. Not on a temporary, which would be destroyed before the record is written.
    detail::statement<basic_diagnostic_logger> begin(std::uint32_t severity) & {
        return {*this, enabledSeverityMask, severity};
    }

private:
    detail::channel_mask enabledSeverityMask;
};

} // namespace fl::log

/// Writes one record: FL_LOG(logger, severity) << piece << piece;
///
/// A statement, with or without braces around it: after `if`, `else`, a label or the head of a loop, and in a piece of
/// another FL_LOG. `logger` and `severity` are evaluated once; the logger must outlive the statement.
///
/// A severity that is masked out costs one load and a bit test. No piece is evaluated then, nor if Boost.Log's core is
/// disabled or its filter refuses the record. Exceptions of pieces, filters and sinks leave the statement; a record
/// whose formatting is interrupted isn't written.
#define FL_LOG(logger, severity) FL_LOG_AS(BOOST_PP_CAT(flStatement, __COUNTER__), logger, severity)

// `statement` is a different name for each use, because a piece may log too.
// NOLINTBEGIN(bugprone-macro-parentheses): a declared name can't have any
#define FL_LOG_AS(statement, target, level)                                                                            \
    for (auto statement = (target).begin(level); statement.next();)                                                    \
    BOOST_LOG_SEV(statement.logger(), statement.severity())
// NOLINTEND(bugprone-macro-parentheses)
