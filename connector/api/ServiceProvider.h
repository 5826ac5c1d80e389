#pragma once

#include <connector/Export.h>
#include <connector/api/Address.h>
#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <connector/api/Reply.h>

#include <atomic>
#include <memory>

namespace connector {

/// A service: the handler that a host registers on a connector under a name. Derive from it, answer messages in
/// handle().
///
/// Ownership: shared. The connector holds a provider from registration to removal and for the length of each call; it
/// may be registered under several names and on several connectors. Threads: start(), stop() and handle() run on
/// whatever thread calls the connector, handle() on several at once; the framework adds no serialisation.
class CONNECTOR_API_EXPORT ServiceProvider {
public:
    virtual ~ServiceProvider();

    ServiceProvider(const ServiceProvider&) = delete;
    ServiceProvider& operator=(const ServiceProvider&) = delete;

    /// Called after `running` went from false to true. What it throws leaves the connector's operation that caused it,
    /// and `running` stays true. May run under the connector's lock; ConnectorImpl2 says which of its operations work
    /// then. Does nothing unless overridden.
    virtual void start();

    /// Called after `running` went from true to false; otherwise as start().
    virtual void stop();

    /// Answers `message`. `address` is what is left behind the segment that named this service; `context` is the
    /// caller's, and may be empty. All three may be moved from; what is left of them is the caller's again, or, over
    /// the exchange, dies after the call. The result may be resolved already or be resolved later, on any thread. An
    /// exception thrown here reaches whoever asks for the reply.
    ///
    /// No lock of a connector is held: any operation of the same connector may be called. Only when the sender is a
    /// callback under a lock, that callback's rules hold here too.
    virtual Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) = 0;

    /// Whether a connector has started this provider. Connectors change it only by atomic exchange, and call start() or
    /// stop() only when that changed it, so neither is ever called twice in a row.
    std::atomic<bool> running{false};

protected:
    ServiceProvider() = default;
};

} // namespace connector
