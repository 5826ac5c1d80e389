#include <fl/log/detail/channel_mask.h>
#include <fl/log/severity_mask.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace fl::log {
namespace {

struct channel_state {
    std::uint32_t mask = defaultSeverityMask;
    std::vector<detail::channel_mask*> loggers;
};

struct channel_table {
    std::mutex mutex;
    std::map<std::string, channel_state> channels; // guarded by mutex
};

// A function's static: made by the first logger's constructor, so it outlives every logger.
channel_table& table() {
    static channel_table channels;
    return channels;
}

// Sequentially consistent: either the end of logging sees a statement in `writing`, or the statement sees that logging
// has `ended`.
std::atomic<std::uint32_t> writing{0};
std::atomic<bool> ended{false};

// This thread's part of `writing`.
thread_local std::uint32_t writingOnThisThread = 0;

struct end_of_logging {
    end_of_logging() = default;
    end_of_logging(const end_of_logging&) = delete;
    end_of_logging& operator=(const end_of_logging&) = delete;

    // Doesn't wait for this thread: a sink may have ended the process. Doesn't wait for ever: a sink that never returns
    // must not keep the process from ending.
    ~end_of_logging() {
        ended.store(true);
        const auto enough = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (writing.load() != writingOnThisThread && std::chrono::steady_clock::now() < enough)
            std::this_thread::yield();
    }
};

} // namespace

void setEnabledSeverityMask(const std::string& channel, std::uint32_t mask) {
    const std::lock_guard<std::mutex> lock(table().mutex);
    channel_state& state = table().channels[channel];
    state.mask = mask;
    for (detail::channel_mask* logger : state.loggers)
        logger->set(mask);
}

std::uint32_t enabledSeverityMask(const std::string& channel) {
    const std::lock_guard<std::mutex> lock(table().mutex);
    const auto found = table().channels.find(channel);
    return found == table().channels.end() ? defaultSeverityMask : found->second.mask;
}

namespace detail {

channel_mask::channel_mask(const std::string& channel) : value(0) {
    const std::lock_guard<std::mutex> lock(table().mutex);
    channel_state& state = table().channels[channel];
    state.loggers.push_back(this);
    set(state.mask);
}

channel_mask::~channel_mask() {
    const std::lock_guard<std::mutex> lock(table().mutex);
    for (auto& channel : table().channels) {
        auto& loggers = channel.second.loggers;
        loggers.erase(std::remove(loggers.begin(), loggers.end(), this), loggers.end());
    }
}

bool enter_statement() noexcept {
    ++writingOnThisThread;
    writing.fetch_add(1);
    if (!ended.load())
        return true;
    writing.fetch_sub(1);
    --writingOnThisThread;
    return false;
}

void leave_statement() noexcept {
    // Made at the end of the first statement, so after all that Boost.Log made for it: its destructor runs before
    // theirs.
    static const end_of_logging end;
    writing.fetch_sub(1);
    --writingOnThisThread;
}

} // namespace detail
} // namespace fl::log
