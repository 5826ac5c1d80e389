#pragma once

#include <connector/Export.h>

namespace connector {

/// The base of every message. What a message contains is between the host and its providers: the framework never reads
/// or changes one, it only moves the std::unique_ptr that owns it and destroys it through this class.
class CONNECTOR_API_EXPORT Message {
public:
    virtual ~Message();

protected:
    Message() = default;

    /// For derived classes that can be copied. The framework copies no message.
    Message(const Message&) = default;

    /// As the copy constructor.
    Message& operator=(const Message&) = default;
};

} // namespace connector
