#pragma once

#include <connector/api/Address.h>
#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <foundation/msg_svc/exchange/Message.h>
#include <foundation/msg_svc/exchange/Reply.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <memory>

namespace connector {

/// Carries what the framework sends across the exchange: a request with its message, the rest of its address and its
/// context, or a reply with its message alone. Nothing is copied; the provider gets the very objects that the caller
/// passed.
///
/// The exchange hands out const messages only, and the receiver must take the content over: hence the mutable fields.
/// No lock guards them. The exchange gives a request to one queue, and a reply to one submitter, in turn.
class WrapperMessage : public foundation::msg_svc::exchange::Message, public foundation::msg_svc::exchange::Reply {
public:
    /// A request. Takes all three over, and doesn't throw.
    WrapperMessage(std::unique_ptr<connector::Message>&& message, Address&& address,
                   std::shared_ptr<Context>&& context) noexcept;

    /// A reply, whose message may be empty.
    WrapperMessage(std::unique_ptr<connector::Message>&& message) noexcept;

    // Each leaves its field empty.
    std::unique_ptr<connector::Message> takeMessage() const noexcept;
    Address takeAddress() const noexcept;
    std::shared_ptr<Context> takeContext() const noexcept;

    /// An ErrorMessage: "No service named: NAME", with the name of the queue that isn't there.
    boost::shared_ptr<const foundation::msg_svc::exchange::Reply>
    createUndeliverableReply(const foundation::msg_svc::exchange::Envelope& envelope) const override;

private:
    mutable std::unique_ptr<connector::Message> message;
    mutable Address address;
    mutable std::shared_ptr<Context> context;
};

} // namespace connector
