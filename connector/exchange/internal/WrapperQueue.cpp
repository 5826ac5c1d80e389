#include <connector/exchange/internal/ErrorMessage.h>
#include <connector/exchange/internal/WrapperMessage.h>
#include <connector/exchange/internal/WrapperQueue.h>
#include <foundation/msg_svc/exchange/Envelope.h>
#include <foundation/msg_svc/exchange/UnexpectedMessage.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <cassert>
#include <exception>
#include <typeinfo>

namespace connector {

namespace exchange = foundation::msg_svc::exchange;

WrapperQueue::WrapperQueue(const std::shared_ptr<ServiceProvider>& provider,
                           const boost::weak_ptr<exchange::DefaultExchange>& exchange)
    : MessageQueue(exchange), provider(provider) {
    assert(provider);
}

void WrapperQueue::queueRemoved() {}

void WrapperQueue::deliver(const exchange::Envelope* envelope) {
    processEnvelope(envelope);
}

void WrapperQueue::processEnvelope(const exchange::Envelope* envelope) {
    const auto received = envelope ? envelope->getMessage() : boost::shared_ptr<const exchange::Message>();
    const auto* request = dynamic_cast<const WrapperMessage*>(received.get());
    if (!request)
        throw exchange::UnexpectedMessage(typeid(WrapperMessage), received.get());
    const exchange::Routing routing(envelope->getRouting(), this->exchange());
    try {
        Reply reply = provider->handle(request->takeMessage(), request->takeAddress(), request->takeContext());
        sendReply(routing, boost::make_shared<WrapperMessage>(reply.get()));
    } catch (const std::exception& exception) {
        sendReply(routing, boost::make_shared<ErrorMessage>(exception.what()));
    }
}

} // namespace connector
