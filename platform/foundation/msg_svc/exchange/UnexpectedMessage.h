#pragma once

#include <fl/except/IInternalException.h>
#include <foundation/Export.h>

#include <boost/exception/exception.hpp>

#include <stdexcept>
#include <typeinfo>

namespace foundation::msg_svc::exchange {

class Message;

/// A queue got a message that it has no use for. Thrown out of MessageQueue::processEnvelope(); the submitter meets it
/// in its future. Can be caught as std::exception, boost::exception, fl::except::IInternalException and
/// fl::except::IException.
class FOUNDATION_EXPORT UnexpectedMessage : public std::runtime_error,
                                            public boost::exception,
                                            public fl::except::IInternalException {
public:
    /// Looks at `received` (which may be null) for its type only, and doesn't keep it.
    UnexpectedMessage(const std::type_info& expected, const Message* received);

    /// A copy with the same text.
    UnexpectedMessage(const UnexpectedMessage& other);
    ~UnexpectedMessage() override;

    /// "Unexpected message: expected TYPE, received TYPE." or "Unexpected message: expected TYPE, received none."
    const char* what() const noexcept override;
};

} // namespace foundation::msg_svc::exchange
