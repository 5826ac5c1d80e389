#pragma once

#include <foundation/Export.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <iosfwd>

namespace foundation::msg_svc::exchange {

class Envelope;
class Reply;

/// A message that an exchange delivers to a queue. Derive from it; the receiving queue finds the actual type by
/// dynamic_cast.
///
/// Ownership: shared by the submitter and the exchange until it has been delivered. The receiver can't change it.
class FOUNDATION_EXPORT Message {
public:
    Message() = default;
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    virtual ~Message();

    /// The submitter's reply if no queue has the name to which the message is addressed; empty unless overridden.
    /// `envelope` is the message's own and valid during the call. An exception goes into the submitter's future. No
    /// lock of the exchange is held.
    virtual boost::shared_ptr<const Reply> createUndeliverableReply(const Envelope& envelope) const;

    /// Writes the message in readable form, after `indentation` blanks: the type's name, unless overridden.
    virtual void toString(std::ostream& stream, int indentation) const;

protected:
    /// Whether both have the same content, for derived classes that offer a comparison. Unless overridden, true only
    /// for the same object.
    virtual bool protectedEquals(const Message& other) const;
};

} // namespace foundation::msg_svc::exchange
