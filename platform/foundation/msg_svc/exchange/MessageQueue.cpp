#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/MessageQueue.h>
#include <foundation/msg_svc/exchange/Reply.h>
#include <foundation/msg_svc/exchange/Routing.h>

#include <utility>

namespace foundation::msg_svc::exchange {

MessageQueue::MessageQueue(boost::weak_ptr<DefaultExchange> exchange) : weakExchange(std::move(exchange)) {}

MessageQueue::~MessageQueue() = default;

void MessageQueue::queueRemoved() {}

void MessageQueue::deliver(const Envelope* envelope) {
    processEnvelope(envelope);
}

boost::shared_ptr<DefaultExchange> MessageQueue::exchange() const {
    return weakExchange.lock();
}

void MessageQueue::sendReply(const Routing& routing, boost::shared_ptr<const Reply> reply) {
    try {
        routing.promise->set_value(std::move(reply));
    } catch (const boost::promise_already_satisfied&) {
        // The first reply counted.
    }
}

} // namespace foundation::msg_svc::exchange
