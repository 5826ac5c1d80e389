#pragma once

#include <connector/api/Address.h>
#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <foundation/msg_svc/exchange/Message.h>
#include <foundation/msg_svc/exchange/Reply.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <memory>

namespace connector {

/// Carries a request or a reply across the exchange. A request has a message, the rest of its address and its context;
/// a reply has only a message. Nothing is copied: the provider receives the same objects that the caller passed.
///
/// The fields are mutable because the exchange passes messages as const, and the receiver must move the content out. No
/// lock guards them: the exchange gives a request to one queue and its reply to one caller, one after the other.
class WrapperMessage : public foundation::msg_svc::exchange::Message, public foundation::msg_svc::exchange::Reply {
public:
    /// A request. Moves from all three.
    WrapperMessage(std::unique_ptr<connector::Message>&& message, Address&& address,
                   std::shared_ptr<Context>&& context) noexcept;

    /// A reply. Its message may be empty.
    WrapperMessage(std::unique_ptr<connector::Message>&& message) noexcept;

    // Each moves its field out and leaves it empty.
    std::unique_ptr<connector::Message> takeMessage() const noexcept;
    Address takeAddress() const noexcept;
    std::shared_ptr<Context> takeContext() const noexcept;

    /// An ErrorMessage: "No service named: NAME", with the queue's name from the envelope's address.
    boost::shared_ptr<const foundation::msg_svc::exchange::Reply>
    createUndeliverableReply(const foundation::msg_svc::exchange::Envelope& envelope) const override;

private:
    mutable std::unique_ptr<connector::Message> message;
    mutable Address address;
    mutable std::shared_ptr<Context> context;
};

} // namespace connector
