#include <foundation/msg_svc/exchange/Message.h>
#include <foundation/msg_svc/exchange/UnexpectedMessage.h>

#include <boost/core/demangle.hpp>

#include <string>

namespace foundation::msg_svc::exchange {

UnexpectedMessage::UnexpectedMessage(const std::type_info& expected, const Message* received)
    : std::runtime_error("Unexpected message: expected " + boost::core::demangle(expected.name()) + ", received " +
                         (received ? boost::core::demangle(typeid(*received).name()) : "none") + ".") {}

// Out of line, like all code that uses the bases' virtual tables, so that a host needs only this library to throw and
// catch it.
UnexpectedMessage::UnexpectedMessage(const UnexpectedMessage& other) = default;
UnexpectedMessage::~UnexpectedMessage() = default;

const char* UnexpectedMessage::what() const noexcept {
    return std::runtime_error::what();
}

} // namespace foundation::msg_svc::exchange
