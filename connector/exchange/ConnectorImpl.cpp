#include <connector/exchange/ConnectorImpl.h>
#include <connector/exchange/internal/ErrorMessage.h>
#include <connector/exchange/internal/WrapperMessage.h>
#include <connector/exchange/internal/WrapperQueue.h>
#include <connector/internal/ProcessContext.h>
#include <connector/internal/ProviderLifecycle.h>
#include <foundation/msg_svc/exchange/DefaultExchange.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <cassert>
#include <stdexcept>
#include <utility>

namespace connector {

namespace exchange = foundation::msg_svc::exchange;

namespace {

template <class Exception>
Reply failed(const Exception& exception) {
    return makeExceptionalFuture<std::unique_ptr<Message>>(exception);
}

} // namespace

ConnectorImpl::ConnectorImpl()
    : exchangeApi(exchange::ExchangeApi::instance()), defaultExchange(exchange::ExchangeApi::defaultInstance()) {
    assert(exchangeApi && defaultExchange);
}

ConnectorImpl::~ConnectorImpl() {
    // reset() empties the member before it destroys the context, whose destructor may call the connector.
    processContext.reset();
    assert(!processContext);
}

std::string ConnectorImpl::getName() const {
    return exchangeApi->getExchangeName();
}

void ConnectorImpl::start() {
    running.exchange(true);
}

void ConnectorImpl::stop() {
    running.exchange(false);
}

void ConnectorImpl::addServiceProvider(const std::string& name, std::shared_ptr<ServiceProvider> provider) {
    internal::requireProvider(provider);
    internal::matchProvider(*provider, running);
    exchangeApi->addQueue(name, boost::make_shared<WrapperQueue>(provider, defaultExchange));
}

void ConnectorImpl::removeServiceProvider(const std::string& name) {
    exchangeApi->removeQueue(name);
}

std::set<std::string> ConnectorImpl::listServiceProviders() {
    throw std::runtime_error("Listing service providers isn't supported by this implementation.");
}

Reply ConnectorImpl::handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) {
    const std::string service = address.pop();
    if (service.empty())
        return failed(std::invalid_argument("Address can't be empty."));
    const auto request = boost::make_shared<WrapperMessage>(std::move(message), std::move(address), std::move(context));
    const auto reply = exchangeApi->submitWithReply(request, exchange::Address(getName(), service)).get();
    if (const auto* answer = dynamic_cast<const WrapperMessage*>(reply.get()))
        return makeReadyFuture(answer->takeMessage());
    if (const auto* error = dynamic_cast<const ErrorMessage*>(reply.get()))
        return failed(std::runtime_error(error->getText()));
    return failed(std::runtime_error("Unknown error!"));
}

std::shared_ptr<Context> ConnectorImpl::newContext() {
    if (!processContext)
        processContext = internal::makeProcessContext(*this);
    return processContext->newSharedSession();
}

std::shared_ptr<Context> ConnectorImpl::setProcessContext(std::shared_ptr<Context> context) {
    processContext.swap(context);
    return context;
}

std::shared_ptr<Connector> ConnectorImpl::getPtr() {
    return shared_from_this();
}

} // namespace connector
