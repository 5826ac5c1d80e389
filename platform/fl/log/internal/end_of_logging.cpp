#include <fl/log/detail/channel_mask.h>
#include <fl/log/internal/channel_table.h>
#include <fl/log/internal/end_of_logging.h>

#include <boost/log/sources/severity_feature.hpp>

#include <atomic>
#include <mutex>

namespace fl::log::internal {
namespace {

std::atomic<bool> ended{false};

bool othersWrite() {
    const std::lock_guard<std::mutex> lock(table().mutex);
    for (const auto& channel : table().channels)
        for (const detail::channel_mask* logger : channel.second.loggers)
            if (logger->usedByOthers())
                return true;
    return false;
}

struct end_of_logging {
    // Boost.Log makes its storage of severities with the first record that it opens. Made here, the storage is
    // destroyed after this object.
    end_of_logging() { boost::log::sources::aux::get_severity_level(); }
    end_of_logging(const end_of_logging&) = delete;
    end_of_logging& operator=(const end_of_logging&) = delete;
    ~end_of_logging() {
        ended.store(true);
        waitWhile(othersWrite);
    }
};

} // namespace

void arrangeEndOfLogging() {
    static const end_of_logging end;
}

bool loggingHasEnded() noexcept {
    return ended.load();
}

} // namespace fl::log::internal
