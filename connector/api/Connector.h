#pragma once

#include <connector/Export.h>
#include <connector/api/Address.h>
#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <connector/api/Reply.h>
#include <connector/api/ServiceProvider.h>

#include <memory>
#include <set>
#include <string>

namespace connector {

/// Routes messages inside a process: a host registers providers under names and sends messages to addresses that begin
/// with such a name. ConnectorImpl2 calls the provider directly; ConnectorImpl sends the message through the process's
/// message-service exchange.
///
///     const std::shared_ptr<Connector> connector = std::make_shared<ConnectorImpl2>();
///     connector->addServiceProvider("greet", std::make_shared<Greeter>());
///     Reply reply = connector->handle(std::make_unique<Text>("world"), Address("greet"), connector->newContext());
///     const std::unique_ptr<Message> answer = reply.get();
///
/// This header states what both connectors do; their own headers state the rest. docs/connectors.md compares them.
///
/// Ownership: connectors are owned by std::shared_ptr. A connector never owns the messages that pass through it. The
/// host keeps it alive until every call of its operations has returned.
class CONNECTOR_API_EXPORT Connector {
public:
    virtual ~Connector();

    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    /// The connector's own name. It doesn't affect routing.
    virtual std::string getName() const = 0;

    /// Marks the connector as started, as a new connector is. Providers added from now on are started.
    virtual void start() = 0;

    /// Marks the connector as stopped. Providers added from now on are stopped. Messages are still routed.
    virtual void stop() = 0;

    /// Registers `provider` under `name`. Also starts it if the connector is started and it isn't running, or stops it
    /// if the connector is stopped and it is running. Throws std::invalid_argument ("Service provider can't be empty.")
    /// for an empty pointer. If the registration itself fails, nothing is registered.
    virtual void addServiceProvider(const std::string& name, std::shared_ptr<ServiceProvider> provider) = 0;

    /// Unregisters the provider of `name`. A name that isn't registered is not an error. A message that has already
    /// been routed to the provider is still delivered; the provider is kept until that call has returned.
    virtual void removeServiceProvider(const std::string& name) = 0;

    /// The names, as they were registered. ConnectorImpl doesn't support this operation.
    virtual std::set<std::string> listServiceProviders() = 0;

    /// Delivers `message` to the provider named by the first segment of `address`, with the rest of the address and
    /// `context`, which may be empty. Returns the provider's reply. If the message can't be delivered, or the provider
    /// throws, the reply fails. Over the exchange, exceptions that aren't derived from std::exception are thrown by
    /// handle() itself. docs/failures.md lists all failures, and states who then owns the message.
    virtual Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) = 0;

    /// A new context: newSharedSession() of the process context, which is created if there is none. Contexts made from
    /// one process context share their Process data. Throws std::bad_weak_ptr if a process context must be created and
    /// no std::shared_ptr owns the connector, std::bad_alloc, and what newSharedSession() throws. A process context
    /// created before the exception is kept.
    virtual std::shared_ptr<Context> newContext() = 0;

    /// Replaces the process context; after an empty pointer, the next newContext() creates one. Returns the previous
    /// process context, or an empty pointer if there was none. Existing contexts keep their data.
    virtual std::shared_ptr<Context> setProcessContext(std::shared_ptr<Context> context) = 0;

    /// This connector. Throws std::bad_weak_ptr if no std::shared_ptr owns it, and during its destructor.
    virtual std::shared_ptr<Connector> getPtr() = 0;

protected:
    Connector();
};

} // namespace connector
