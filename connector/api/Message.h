#pragma once

#include <connector/Export.h>

namespace connector {

/// The base class of messages; the host defines their content. The framework never reads, changes or copies a message:
/// it moves the std::unique_ptr that owns it, and destroys it through this class.
class CONNECTOR_API_EXPORT Message {
public:
    virtual ~Message();

protected:
    Message() = default;

    /// For derived classes that can be copied.
    Message(const Message&) = default;

    /// For derived classes that can be copied.
    Message& operator=(const Message&) = default;
};

} // namespace connector
