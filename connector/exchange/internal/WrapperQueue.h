#pragma once

#include <connector/api/ServiceProvider.h>
#include <foundation/msg_svc/exchange/MessageQueue.h>

#include <boost/smart_ptr/weak_ptr.hpp>

#include <memory>

namespace connector {

/// The queue of one provider on the exchange. For each request it calls the provider, waits for its future, and sends
/// the result back.
///
/// Ownership: the exchange owns the queue; the queue owns its provider. Takes no lock. Each delivery runs on the thread
/// that sends the request; several may run at once.
class WrapperQueue : public foundation::msg_svc::exchange::MessageQueue {
public:
    WrapperQueue(const std::shared_ptr<ServiceProvider>& provider,
                 const boost::weak_ptr<foundation::msg_svc::exchange::DefaultExchange>& exchange);

    /// Does nothing: deliveries that found the queue earlier may still call the provider.
    void queueRemoved() override;

    /// Calls processEnvelope().
    void deliver(const foundation::msg_svc::exchange::Envelope* envelope) override;

    /// Answers a request. The reply is a WrapperMessage with the provider's message, or an ErrorMessage with the text
    /// of the std::exception that the provider, its future or the sending of the reply threw. Destroys what the
    /// provider didn't move from, then blocks until the provider's future is resolved.
    ///
    /// Throws any other exception of the provider or its future; no reply is sent then. Throws UnexpectedMessage,
    /// without calling the provider, if `envelope` is null, empty or carries another kind of message.
    void processEnvelope(const foundation::msg_svc::exchange::Envelope* envelope) override;

private:
    const std::shared_ptr<ServiceProvider> provider;
};

} // namespace connector
