#pragma once

#include <connector/api/ServiceProvider.h>
#include <foundation/msg_svc/exchange/MessageQueue.h>

#include <boost/smart_ptr/weak_ptr.hpp>

#include <memory>

namespace connector {

/// Stands for one service provider on the exchange: takes each request apart, calls the provider, waits for its future
/// and sends the outcome back.
///
/// Ownership: the exchange owns the queue, the queue its provider. Takes no lock; deliveries run on the submitting
/// threads, several at once.
class WrapperQueue : public foundation::msg_svc::exchange::MessageQueue {
public:
    WrapperQueue(const std::shared_ptr<ServiceProvider>& provider,
                 const boost::weak_ptr<foundation::msg_svc::exchange::DefaultExchange>& exchange);

    /// Does nothing: the provider may still be called by deliveries that found the queue before.
    void queueRemoved() override;

    /// Passes `envelope` on to processEnvelope().
    void deliver(const foundation::msg_svc::exchange::Envelope* envelope) override;

    /// Answers a WrapperMessage with a WrapperMessage, or with an ErrorMessage that has the text of the std::exception
    /// with which the provider or its future failed, or that kept the reply from being sent. Blocks until the
    /// provider's future is resolved; what the provider left of message, address and context is destroyed before it
    /// waits.
    ///
    /// Throws, with nothing sent, any other exception of the provider, and UnexpectedMessage, with the provider not
    /// called, when `envelope` is null, empty or carries another kind of message.
    void processEnvelope(const foundation::msg_svc::exchange::Envelope* envelope) override;

private:
    const std::shared_ptr<ServiceProvider> provider;
};

} // namespace connector
