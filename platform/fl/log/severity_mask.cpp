#include <fl/log/detail/channel_mask.h>
#include <fl/log/severity_mask.h>

#include <boost/log/sources/severity_feature.hpp>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <new>
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

// Empties the table, so that unloading the library leaves nothing behind.
struct end_of_table {
    explicit end_of_table(channel_table& table) : table(table) {}
    end_of_table(const end_of_table&) = delete;
    end_of_table& operator=(const end_of_table&) = delete;
    ~end_of_table() {
        const std::lock_guard<std::mutex> lock(table.mutex);
        table.channels.clear();
    }

    channel_table& table;
};

// Made by the first logger's constructor and never destroyed: threads that still run when the process ends may use it.
channel_table& table() {
    alignas(channel_table) static unsigned char storage[sizeof(channel_table)];
    static channel_table& channels = *new (storage) channel_table;
    static const end_of_table end(channels);
    return channels;
}

// Sequentially consistent, as are a logger's count and the test of its mask that follows: either the end sees a
// statement counted in, or the statement sees the end.
std::atomic<bool> ended{false};

// This thread's statements under way, of all loggers.
thread_local std::uint32_t writingOnThisThread = 0;

// A sink that never returns must not keep the process from ending.
template <class Condition>
void waitWhile(const Condition& condition) {
    const auto enough = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (condition() && std::chrono::steady_clock::now() < enough)
        std::this_thread::yield();
}

bool othersWrite() {
    const std::lock_guard<std::mutex> lock(table().mutex);
    for (const auto& channel : table().channels)
        for (const detail::channel_mask* logger : channel.second.loggers)
            if (logger->usedByOthers())
                return true;
    return false;
}

struct end_of_logging {
    // Boost.Log makes this with the first record that it opens, and can destroy it before what was made earlier only.
    end_of_logging() { boost::log::sources::aux::get_severity_level(); }
    end_of_logging(const end_of_logging&) = delete;
    end_of_logging& operator=(const end_of_logging&) = delete;
    ~end_of_logging() {
        ended.store(true);
        waitWhile(othersWrite);
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
    {
        const std::lock_guard<std::mutex> lock(table().mutex);
        for (auto& channel : table().channels) {
            auto& loggers = channel.second.loggers;
            loggers.erase(std::remove(loggers.begin(), loggers.end(), this), loggers.end());
        }
    }
    value.store(0);
    if (!ended.load())
        waitWhile([this] { return usedByOthers(); });
}

bool channel_mask::enter(std::uint32_t severity, std::uintmax_t& outer) {
    static const end_of_logging end;
    // First of all: this thread may be in a statement whose sink ended the process.
    if (ended.load())
        return false;
    if (writingOnThisThread > 0)
        outer = boost::log::sources::aux::get_severity_level();
    ++writingOnThisThread;
    writing.fetch_add(1);
    if (!ended.load() && (value.load() & severity) != 0)
        return true;
    leave(outer);
    return false;
}

void channel_mask::leave(std::uintmax_t outer) noexcept {
    writing.fetch_sub(1);
    --writingOnThisThread;
    if (writingOnThisThread > 0)
        boost::log::sources::aux::get_severity_level() = outer;
}

// This thread may be in a statement of its own: a sink may have ended the process.
bool channel_mask::usedByOthers() const noexcept {
    return writing.load() > writingOnThisThread;
}

} // namespace detail
} // namespace fl::log
