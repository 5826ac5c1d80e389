#include <fl/log/detail/channel_mask.h>
#include <fl/log/internal/channel_table.h>
#include <fl/log/internal/end_of_logging.h>

#include <boost/log/sources/severity_feature.hpp>

#include <algorithm>
#include <cassert>
#include <mutex>

namespace fl::log::detail {
namespace {

// This thread's statements under way, of all loggers.
thread_local std::uint32_t writingOnThisThread = 0;

} // namespace

channel_mask::channel_mask(const std::string& channel) : value(0) {
    const std::lock_guard<std::mutex> lock(internal::table().mutex);
    internal::channel_state& state = internal::table().channels[channel];
    state.loggers.push_back(this);
    set(state.mask);
}

channel_mask::~channel_mask() {
    {
        const std::lock_guard<std::mutex> lock(internal::table().mutex);
        for (auto& channel : internal::table().channels) {
            auto& loggers = channel.second.loggers;
            loggers.erase(std::remove(loggers.begin(), loggers.end(), this), loggers.end());
        }
    }
    value.store(0);
    if (!internal::loggingHasEnded())
        internal::waitWhile([this] { return usedByOthers(); });
}

bool channel_mask::enter(std::uint32_t severity, std::uintmax_t& outer) {
    internal::arrangeEndOfLogging();
    // Before Boost.Log is used: this thread may be inside a statement whose sink ended the process.
    if (internal::loggingHasEnded())
        return false;
    if (writingOnThisThread > 0)
        outer = boost::log::sources::aux::get_severity_level();
    ++writingOnThisThread;
    writing.fetch_add(1);
    if (!internal::loggingHasEnded() && (value.load() & severity) != 0)
        return true;
    leave(outer);
    return false;
}

void channel_mask::leave(std::uintmax_t outer) noexcept {
    assert(writingOnThisThread > 0);
    writing.fetch_sub(1);
    --writingOnThisThread;
    if (writingOnThisThread > 0)
        boost::log::sources::aux::get_severity_level() = outer;
}

// This thread may itself be inside a statement: a sink may have ended the process.
bool channel_mask::usedByOthers() const noexcept {
    return writing.load() > writingOnThisThread;
}

} // namespace fl::log::detail
