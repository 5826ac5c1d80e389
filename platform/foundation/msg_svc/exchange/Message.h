#pragma once

#include <foundation/Export.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <iosfwd>

namespace foundation::msg_svc::exchange {

class Envelope;
class Reply;

/// What an exchange carries to a queue. Derive from it; the receiving queue finds out by dynamic_cast what it got.
///
/// Ownership: shared by whoever submitted it and the exchange, until it has been delivered. Immutable to the receiver.
class FOUNDATION_EXPORT Message {
public:
    Message() = default;
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    virtual ~Message();

    /// What the submitter gets when no queue has the name that the message was addressed to. `envelope` is the
    /// message's own, good for the call. An empty pointer unless overridden. What it throws goes into the submitter's
    /// future. No lock of the exchange is held.
    virtual boost::shared_ptr<const Reply> createUndeliverableReply(const Envelope& envelope) const;

    /// Writes the message for a person to read, behind `indentation` blanks: the type's name, unless overridden.
    virtual void toString(std::ostream& stream, int indentation) const;

protected:
    /// Whether both say the same, for derived classes that offer a comparison. Only the same object does unless
    /// overridden.
    virtual bool protectedEquals(const Message& other) const;
};

} // namespace foundation::msg_svc::exchange
