#pragma once

#include <connector/Export.h>
#include <connector/api/Connector.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <atomic>
#include <memory>
#include <set>
#include <string>

namespace foundation::msg_svc::exchange {
class DefaultExchange;
class ExchangeApi;
} // namespace foundation::msg_svc::exchange

namespace connector {

/// The connector over the process's message-service exchange: each provider gets a queue of the exchange, and messages
/// and replies pass through the exchange. All connectors of this class use the same exchange, so they share one name.
/// They share their services with each other and with other users of the exchange.
///
///     const auto connector = std::make_shared<ConnectorImpl>();
///     connector->addServiceProvider("greet", std::make_shared<Greeter>());
///     Reply reply = connector->handle(std::make_unique<Text>("world"), Address("greet"), nullptr); // resolved
///     connector->removeServiceProvider("greet"); // otherwise the exchange keeps it
///
/// docs/connectors.md compares it with ConnectorImpl2. Service names are compared character by character. No
/// service is optional: '?' is a character like any other. Nothing is logged.
///
/// Ownership: create it with std::make_shared. It owns its process context. The exchange owns the providers, from
/// registration to removal and during each call; they outlive the connector. Remove them before the library that
/// contains their code is unloaded.
///
/// Threads: any thread may call any operation at any time, except that the host must serialize newContext() and
/// setProcessContext() of one connector. Takes no lock of its own. The exchange delivers a message on the thread that
/// sends it. It holds no lock while it calls or destroys a provider, so a provider may call any operation of any
/// connector.
class CONNECTOR_IMPL_EXPORT ConnectorImpl : public Connector, public std::enable_shared_from_this<Connector> {
public:
    /// A started connector. It reaches the services that are already registered with the exchange.
    ConnectorImpl();

    /// Removes no services.
    ~ConnectorImpl() override;

    /// The name of the exchange.
    std::string getName() const override;

    /// Marks the connector as started. Registered providers are not started.
    void start() override;

    /// Marks the connector as stopped. Registered providers are not stopped.
    void stop() override;

    /// Starts `provider` if the connector is started, or stops it if the connector is stopped; then registers it.
    ///
    /// Throws std::invalid_argument ("Service provider can't be empty.") before it does anything. If the provider's
    /// start() or stop() throws, so does this operation, and nothing is registered. Throws std::bad_alloc,
    /// std::invalid_argument ("Queue name can't be empty.") and std::runtime_error ("Queue 'NAME' already
    /// registered."); then nothing is registered, but the provider has been started or stopped.
    void addServiceProvider(const std::string& name, std::shared_ptr<ServiceProvider> provider) override;

    /// Removes the queue of that name from the exchange, even if another user of the exchange registered it. Doesn't
    /// stop the provider and doesn't wait for its calls in progress; the last of them may destroy it.
    void removeServiceProvider(const std::string& name) override;

    /// Throws std::runtime_error ("Listing service providers isn't supported by this implementation.").
    std::set<std::string> listServiceProviders() override;

    /// Sends `message` through the exchange and blocks until the reply arrives: if the provider resolves its future on
    /// another thread, until it has done so.
    ///
    /// The returned future is resolved. It has failed in these cases:
    /// - `address` is empty, or its first segment is: std::invalid_argument ("Address can't be empty.").
    /// - No queue has the name: std::runtime_error ("No service named: NAME").
    /// - The provider threw a std::exception, or its future failed with one: std::runtime_error with the same text. If
    ///   memory runs out between request and reply, the text may be "std::bad_alloc".
    /// - A foreign queue, one that no connector registered, sent an unknown reply or an empty one: std::runtime_error
    ///   ("Unknown error!").
    ///
    /// handle() itself throws std::bad_alloc; any other exception of the provider or its future; what a foreign queue
    /// threw; and boost::broken_promise if a foreign queue dropped the request without replying.
    ///
    /// Removes the first segment from `address`. If that segment was empty, or memory ran out before the request was
    /// made, the caller still owns `message`, `context` and the rest of `address`. Otherwise the request owns them, and
    /// destroys what the provider didn't move from.
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) override;

    std::shared_ptr<Context> newContext() override;
    std::shared_ptr<Context> setProcessContext(std::shared_ptr<Context> context) override;
    std::shared_ptr<Connector> getPtr() override;

private:
    // Constant after construction.
    const boost::shared_ptr<foundation::msg_svc::exchange::ExchangeApi> exchangeApi;
    const boost::shared_ptr<foundation::msg_svc::exchange::DefaultExchange> defaultExchange;

    // Not guarded: the host serializes newContext() and setProcessContext().
    std::shared_ptr<Context> processContext;

    // Atomic, sequentially consistent like the providers' flags: whether providers are started or stopped when added.
    std::atomic<bool> running{true};
};

} // namespace connector
