#pragma once

#include <foundation/msg_svc/exchange/Address.h>
#include <foundation/msg_svc/exchange/Message.h>
#include <foundation/msg_svc/exchange/Routing.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <utility>

namespace foundation::msg_svc::exchange {

/// The record of a message in transit. Lives for the length of one delivery.
class Envelope {
public:
    /// For exchanges: `message` on its way to `address`, `routing` back.
    Envelope(boost::shared_ptr<const Message> message, Address address, Routing routing)
        : message(std::move(message)), address(std::move(address)), routing(std::move(routing)) {}

    /// The message, empty if the submitter sent an empty pointer.
    const boost::shared_ptr<const Message>& getMessage() const noexcept { return message; }

    /// Where the submitter sent it.
    const Address& getAddress() const noexcept { return address; }

    /// The way back to the submitter.
    const Routing& getRouting() const noexcept { return routing; }

private:
    boost::shared_ptr<const Message> message;
    Address address;
    Routing routing;
};

} // namespace foundation::msg_svc::exchange
