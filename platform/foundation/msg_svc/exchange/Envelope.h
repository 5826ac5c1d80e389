#pragma once

#include <foundation/msg_svc/exchange/Address.h>
#include <foundation/msg_svc/exchange/Message.h>
#include <foundation/msg_svc/exchange/Routing.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <utility>

namespace foundation::msg_svc::exchange {

/// The record of a message in transit. Exists during one delivery.
class Envelope {
public:
    /// Made by an exchange, for `message` on its way to `address`. `routing` is the record for the reply.
    Envelope(boost::shared_ptr<const Message> message, Address address, Routing routing)
        : message(std::move(message)), address(std::move(address)), routing(std::move(routing)) {}

    /// The message, empty if the submitter sent an empty pointer.
    const boost::shared_ptr<const Message>& getMessage() const noexcept { return message; }

    /// The address that the submitter gave.
    const Address& getAddress() const noexcept { return address; }

    /// The routing record for the reply.
    const Routing& getRouting() const noexcept { return routing; }

private:
    boost::shared_ptr<const Message> message;
    Address address;
    Routing routing;
};

} // namespace foundation::msg_svc::exchange
