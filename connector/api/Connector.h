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

/// Routes messages inside a process: a host registers service providers under names and sends messages to addresses
/// whose first segment is such a name. ConnectorImpl2 calls the provider on the caller's thread; ConnectorImpl goes
/// through the process's message-service exchange. This interface says what both do; each says what it does
/// differently.
///
/// Ownership: connectors are owned by std::shared_ptr. A connector never owns the messages that pass through it.
class CONNECTOR_API_EXPORT Connector {
public:
    virtual ~Connector();

    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    /// The connector's own name, for people: nothing is routed by it.
    virtual std::string getName() const = 0;

    /// Marks the connector as started, which a new one already is. Providers are then started as they are added.
    virtual void start() = 0;

    /// Marks the connector as stopped. Providers are then stopped as they are added. Messages are routed all the same.
    virtual void stop() = 0;

    /// Registers `provider` under `name`, and starts or stops it so that it matches the connector. Throws
    /// std::invalid_argument ("Service provider can't be empty.") for an empty pointer. When it throws because the
    /// registration itself failed, nothing is registered.
    virtual void addServiceProvider(const std::string& name, std::shared_ptr<ServiceProvider> provider) = 0;

    /// Unregisters the provider of `name`; a name that isn't registered is no error. A message already on its way to
    /// the provider still gets there.
    virtual void removeServiceProvider(const std::string& name) = 0;

    /// The registered names, as registered.
    virtual std::set<std::string> listServiceProviders() = 0;

    /// Delivers `message` to the provider that the front of `address` names, with the rest of the address and `context`
    /// (which may be empty), and returns the future of its reply. A message that can't be delivered, and an exception
    /// of the provider, come back in that future.
    virtual Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) = 0;

    /// A new context, derived from the connector's process context. Never empty.
    virtual std::shared_ptr<Context> newContext() = 0;

    /// Replaces the context from which newContext() derives; an empty pointer makes the next newContext() create a
    /// fresh one. Returns the previous one, empty if there was none. Contexts handed out earlier keep their data.
    virtual std::shared_ptr<Context> setProcessContext(std::shared_ptr<Context> context) = 0;

    /// This connector. Throws std::bad_weak_ptr when no std::shared_ptr owns it.
    virtual std::shared_ptr<Connector> getPtr() = 0;

protected:
    Connector();
};

} // namespace connector
