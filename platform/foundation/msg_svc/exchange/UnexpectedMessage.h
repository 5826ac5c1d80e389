#pragma once

#include <fl/except/IInternalException.h>
#include <foundation/Export.h>

#include <boost/exception/exception.hpp>

#include <stdexcept>
#include <typeinfo>

namespace foundation::msg_svc::exchange {

class Message;

/// A queue received a message of a type that it doesn't process. Thrown by MessageQueue::processEnvelope(); the
/// submitter's future then throws it. Can be caught as std::exception, boost::exception, fl::except::IInternalException
/// and fl::except::IException.
class FOUNDATION_EXPORT UnexpectedMessage : public std::runtime_error,
                                            public boost::exception,
                                            public fl::except::IInternalException {
public:
    /// Reads only the type of `received`, which may be null, and doesn't keep it.
    UnexpectedMessage(const std::type_info& expected, const Message* received);

    /// A copy with the same text.
    UnexpectedMessage(const UnexpectedMessage& other);
    ~UnexpectedMessage() override;

    /// "Unexpected message: expected TYPE, received TYPE." or "Unexpected message: expected TYPE, received none."
    const char* what() const noexcept override;
};

} // namespace foundation::msg_svc::exchange
