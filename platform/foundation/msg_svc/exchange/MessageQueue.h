#pragma once

#include <foundation/Export.h>

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/smart_ptr/weak_ptr.hpp>

namespace foundation::msg_svc::exchange {

class DefaultExchange;
class Envelope;
class Reply;
class Routing;

/// The receiver of the messages that are submitted to one name: derive from it, answer in processEnvelope() or later,
/// and register it with ExchangeApi::addQueue().
///
/// Ownership: the exchange owns a queue from registration until it was removed and its last delivery is over; a queue
/// knows its exchange only weakly. Threads: a delivery runs on the thread that submits, so several may run at once; the
/// exchange adds no serialisation. No lock of the exchange is held while it calls a queue or destroys one: any
/// operation of the exchange may be called from there.
class FOUNDATION_EXPORT MessageQueue {
public:
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;
    virtual ~MessageQueue();

    /// The exchange has dropped this queue from its names. Called once for each name, on the thread that removed it,
    /// ended the process or destroyed the exchange. Deliveries that found the queue before may still be under way or
    /// begin. Does nothing unless overridden; what it throws leaves ExchangeApi::removeQueue(), and is lost in the
    /// other cases.
    virtual void queueRemoved();

    /// Called by the exchange for each message. Passes `envelope` on to processEnvelope() unless overridden.
    virtual void deliver(const Envelope* envelope);

    /// Takes one message. `envelope` lives for the length of the call; a copy of its routing record may be kept to
    /// reply later. What this throws before a reply was sent fails the submitter's future, of its own type; what it
    /// throws afterwards is dropped. An int or any other type will do.
    virtual void processEnvelope(const Envelope* envelope) = 0;

    /// The exchange that the queue was made for, empty when it's gone.
    boost::shared_ptr<DefaultExchange> exchange() const;

    /// Answers the submission to which `routing` belongs with `reply`, which may be empty. The first reply counts,
    /// others are dropped. Any thread, during the delivery or after it.
    static void sendReply(const Routing& routing, boost::shared_ptr<const Reply> reply);

protected:
    /// A queue for `exchange`, which it doesn't keep alive. Registering it is left to the caller.
    explicit MessageQueue(boost::weak_ptr<DefaultExchange> exchange);

private:
    const boost::weak_ptr<DefaultExchange> weakExchange;
};

} // namespace foundation::msg_svc::exchange
