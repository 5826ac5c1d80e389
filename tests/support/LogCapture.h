#pragma once

#include <fl/log/severity_mask.h>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace connector::test {

/// While it lives, the framework's records of `mask` come here and nowhere else.
class LogCapture {
public:
    static constexpr const char* channel = "connector::framework";

    struct Record {
        std::uint32_t severity;
        std::string text;
        std::string channel = LogCapture::channel;
        bool operator==(const Record& other) const {
            return severity == other.severity && text == other.text && channel == other.channel;
        }
    };

    /// `onRecord` runs on the logging thread for every record, before it is kept.
    explicit LogCapture(std::uint32_t mask, std::function<void(const Record&)> onRecord = {})
        : sink(boost::make_shared<boost::log::sinks::synchronous_sink<Backend>>(
              boost::make_shared<Backend>([this, onRecord = std::move(onRecord)](const Record& record) {
                  if (onRecord)
                      onRecord(record);
                  records.push_back(record);
              }))) {
        boost::log::core::get()->add_sink(sink);
        fl::log::setEnabledSeverityMask(channel, mask);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() {
        fl::log::setEnabledSeverityMask(channel, before);
        boost::log::core::get()->remove_sink(sink);
    }

    std::vector<Record> records;

private:
    const std::uint32_t before = fl::log::enabledSeverityMask(channel);

    struct Backend : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
        explicit Backend(std::function<void(const Record&)> take) : take(std::move(take)) {}
        void consume(const boost::log::record_view& view) {
            take({boost::log::extract_or_default<std::uint32_t>("Severity", view, 0u),
                  boost::log::extract_or_default<std::string>("Message", view, std::string()),
                  boost::log::extract_or_default<std::string>("Channel", view, std::string())});
        }
        const std::function<void(const Record&)> take;
    };

    const boost::shared_ptr<boost::log::sinks::synchronous_sink<Backend>> sink;
};

inline std::ostream& operator<<(std::ostream& stream, const LogCapture::Record& record) {
    return stream << record.channel << " " << record.severity << ": " << record.text;
}

} // namespace connector::test
