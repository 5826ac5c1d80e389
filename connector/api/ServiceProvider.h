#pragma once

#include <connector/Export.h>
#include <connector/api/Address.h>
#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <connector/api/Reply.h>

#include <atomic>
#include <memory>

namespace connector {

/// The base class of providers: a derived class answers messages in handle(). A host registers the provider with a
/// connector under the name of a service.
///
///     class Greeter : public ServiceProvider {
///         Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
///             auto& text = dynamic_cast<Text&>(*message).text;
///             text = "Hello, " + text + "!";
///             return makeReadyFuture(std::move(message));
///         }
///     };
///
/// Ownership: shared. ConnectorImpl2, or the exchange for ConnectorImpl, holds a provider from registration to removal
/// and during each call of handle(). A provider may be registered under several names and with several connectors.
///
/// Threads: start(), stop() and handle() run on the threads that use the connector, possibly at the same time.
class CONNECTOR_API_EXPORT ServiceProvider {
public:
    virtual ~ServiceProvider();

    ServiceProvider(const ServiceProvider&) = delete;
    ServiceProvider& operator=(const ServiceProvider&) = delete;

    /// Called after `running` was changed from false to true. If it throws, the connector's operation that called it
    /// throws the same exception, and `running` stays true. It may run under the connector's lock:
    /// docs/threads-and-locks.md states which operations of the connector then work. Does nothing unless overridden.
    virtual void start();

    /// Called after `running` was changed from true to false. If it throws, `running` stays false. Otherwise like
    /// start().
    virtual void stop();

    /// Answers `message`. `address` is the rest of the caller's address, without the segment that named this service.
    /// `context` is the caller's and may be empty. The returned reply may be resolved later, on any thread; a caller
    /// that needs no reply may drop it. An exception thrown here fails the reply; over the exchange, one that isn't
    /// derived from std::exception is thrown by the connector's handle() instead.
    ///
    /// All three arguments may be moved from. What is left in them stays with the caller; over the exchange, it is
    /// destroyed after the call.
    ///
    /// This can't be a coroutine, since its references may dangle after a co_await; the compiler rejects one. Pass the
    /// arguments on to a static coroutine that takes them by value.
    ///
    /// No lock of a connector is held, so any operation of the connector may be called. If the caller is a callback,
    /// the rules for callbacks apply here too (docs/threads-and-locks.md).
    virtual Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) = 0;

    /// Whether a connector has started this provider. Connectors change it by atomic exchange, and call start() or
    /// stop() only if that changed it. Only the flag is atomic: if several threads start, stop, add or remove the
    /// provider, start() and stop() may run at the same time, and end in either order.
    std::atomic<bool> running{false};

protected:
    ServiceProvider() = default;
};

} // namespace connector
