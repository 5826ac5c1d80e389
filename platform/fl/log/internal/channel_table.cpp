#include <fl/log/internal/channel_table.h>

#include <new>

namespace fl::log::internal {
namespace {

// Empties the table, so that unloading the library frees all memory.
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

} // namespace

channel_table& table() {
    alignas(channel_table) static unsigned char storage[sizeof(channel_table)];
    static channel_table& channels = *new (storage) channel_table;
    static const end_of_table end(channels);
    return channels;
}

} // namespace fl::log::internal
