#include <connector/exchange/internal/ErrorMessage.h>
#include <connector/exchange/internal/WrapperMessage.h>
#include <foundation/msg_svc/exchange/Envelope.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <utility>

namespace connector {

WrapperMessage::WrapperMessage(std::unique_ptr<connector::Message>&& message, Address&& address,
                               std::shared_ptr<Context>&& context) noexcept
    : message(std::move(message)), address(std::move(address)), context(std::move(context)) {}

WrapperMessage::WrapperMessage(std::unique_ptr<connector::Message>&& message) noexcept : message(std::move(message)) {}

std::unique_ptr<connector::Message> WrapperMessage::takeMessage() const noexcept {
    return std::move(message);
}

Address WrapperMessage::takeAddress() const noexcept {
    return std::move(address);
}

std::shared_ptr<Context> WrapperMessage::takeContext() const noexcept {
    return std::move(context);
}

boost::shared_ptr<const foundation::msg_svc::exchange::Reply>
WrapperMessage::createUndeliverableReply(const foundation::msg_svc::exchange::Envelope& envelope) const {
    return boost::make_shared<ErrorMessage>("No service named: " + envelope.getAddress().getQueueName());
}

} // namespace connector
