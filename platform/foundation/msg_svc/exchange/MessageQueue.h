#pragma once

#include <foundation/Export.h>

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/smart_ptr/weak_ptr.hpp>

namespace foundation::msg_svc::exchange {

class DefaultExchange;
class Envelope;
class Reply;
class Routing;

/// The receiver of all messages that are submitted to one name. Derive from it, answer in processEnvelope() or later,
/// and register it with ExchangeApi::addQueue().
///
/// Ownership: the exchange owns a queue from registration until it has been removed and its last delivery has ended; a
/// queue refers to its exchange weakly. Threads: a delivery runs on the thread that submits, so several may run at
/// once; the exchange doesn't serialize them. The exchange holds no lock while it calls or destroys a queue, so any
/// operation of the exchange may be called from there.
class FOUNDATION_EXPORT MessageQueue {
public:
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;
    virtual ~MessageQueue();

    /// Called when the exchange has dropped this queue: once for each name, on the thread that removed it, ended the
    /// process or destroyed the exchange. Deliveries that found the queue before may still run or begin. Does nothing
    /// unless overridden. Its exceptions leave ExchangeApi::removeQueue(); in the other cases they are lost.
    virtual void queueRemoved();

    /// Called by the exchange for each message. Passes `envelope` to processEnvelope() unless overridden.
    virtual void deliver(const Envelope* envelope);

    /// Processes one message. `envelope` is valid during the call; keep a copy of its routing record to reply later. An
    /// exception of any type that is thrown before a reply was sent fails the submitter's future with its type
    /// preserved. An exception that is thrown afterwards is dropped.
    virtual void processEnvelope(const Envelope* envelope) = 0;

    /// The exchange for which the queue was made; empty if that was destroyed.
    boost::shared_ptr<DefaultExchange> exchange() const;

    /// Answers the submission of `routing` with `reply`, which may be empty. The first reply counts, others are
    /// dropped. Any thread, during the delivery or after it.
    static void sendReply(const Routing& routing, boost::shared_ptr<const Reply> reply);

protected:
    /// A queue for `exchange`, to which it refers weakly. The caller registers it.
    explicit MessageQueue(boost::weak_ptr<DefaultExchange> exchange);

private:
    const boost::weak_ptr<DefaultExchange> weakExchange;
};

} // namespace foundation::msg_svc::exchange
