#pragma once

#include <connector/Export.h>
#include <connector/api/Connector.h>

#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

namespace connector {

namespace internal {
class RegistryGate;
}

/// The in-process connector: keeps its own registry of providers and calls them on the thread that sends.
///
/// Routing takes the service name from the front of the address. A segment beginning with '?' names an optional
/// service: it is skipped when nobody serves it and used like any other when somebody does. A stopped connector, and a
/// stopped provider, still receive messages.
///
/// Services are keyed by serviceNameHash() of their name. A name is taken when its key is: by the same name, by the
/// name with or without one leading '?', or by a name that happens to have the same hash.
///
/// Ownership: made by std::make_shared (getPtr() and newContext() throw std::bad_weak_ptr otherwise). Owns its
/// providers and its process context until they are removed or replaced, or the connector is destroyed, which stops no
/// provider. A caller keeps the connector alive until its call has returned. The one exception is the destructor: the
/// destructors of the providers and of the process context that it drops may call handle(), listServiceProviders(),
/// start(), stop() and getName(), and find a connector without providers. They must register nothing; getPtr() and
/// newContext() throw std::bad_weak_ptr by then, or as under any callback.
///
/// Threads: any thread may call any operation at any time. One reader-writer lock guards the registry and the process
/// context: shared by handle() until it has found the provider, by listServiceProviders(), start() and stop();
/// exclusive by addServiceProvider(), removeServiceProvider(), setProcessContext() and the destructor; upgradeable by
/// newContext(). A writer waits for the holds that are there when its turn comes, and no hold that comes later
/// overtakes it; writers take turns in the order of their coming, and what was waiting to read goes between two of
/// them.
///
/// Callbacks: a provider's handle() runs without the lock and may call anything. These run under it: a provider's
/// start() and stop() when the connector's start() or stop() calls them, its stop() and the destruction of its last
/// reference in removeServiceProvider() or the connector's destructor, newSharedSession() of the process context in
/// newContext(), and log sinks. From there handle(), listServiceProviders(), start(), stop(), getName() and getPtr()
/// work; addServiceProvider(), removeServiceProvider(), setProcessContext() and newContext() would wait for the very
/// thread that calls them and throw std::system_error (std::errc::resource_deadlock_would_occur) at once, having
/// changed nothing. Another thread's operations wait meanwhile, so a callback must not wait for one of those either;
/// nor may it let go of the last reference to the connector.
///
/// Logs on the channel "connector::framework". What a log sink or filter throws leaves the operation that logged.
class CONNECTOR_IMPL_EXPORT ConnectorImpl2 : public Connector, public std::enable_shared_from_this<Connector> {
public:
    /// A started connector without providers.
    ConnectorImpl2(const std::string& name = "default");
    ~ConnectorImpl2() override;

    /// The name given at construction. Takes no lock.
    std::string getName() const override;

    /// Starts every registered provider that isn't started, then marks the connector as started. If a provider's
    /// start() throws, that leaves here: that provider counts as started, those that would have come later are not, the
    /// connector is what it was.
    void start() override;

    /// Marks the connector as stopped, then stops every registered provider that is started. If a provider's stop()
    /// throws, that leaves here: that provider counts as stopped, those that would have come later are not; the
    /// connector is stopped.
    void stop() override;

    /// Registers `provider`, then, with no lock held, starts it if the connector is started, or stops it if the
    /// connector is stopped. Throws std::invalid_argument ("Service provider can't be empty."), std::runtime_error
    /// ("Service with name NAME already registered (or hash collision).", logged too) and std::bad_alloc; the registry
    /// is then what it was and the provider was not called. What its start() or stop() throws leaves here as well; the
    /// provider is registered then.
    void addServiceProvider(const std::string& serviceName, std::shared_ptr<ServiceProvider> provider) override;

    /// Stops the provider of `serviceName` if it is started, then drops it. A name that isn't registered is no error.
    /// If the provider's stop() throws, that leaves here: the provider stays registered and counts as stopped.
    void removeServiceProvider(const std::string& serviceName) override;

    std::set<std::string> listServiceProviders() override;

    /// Routes `message` on the calling thread and returns the provider's own future, unchanged.
    ///
    /// The future has failed already, with std::invalid_argument, when the address is empty or only optional services
    /// were left in it and nobody serves them ("No service specified. Address can't be empty."), and when nobody serves
    /// the first segment that is not optional ("Message not delivered: service 'NAME' not found, remainder of address:
    /// REST", logged too); it has failed with the provider's own exception when the provider threw (logged as a
    /// warning).
    ///
    /// Segments are gone from `address` as far as they were looked at. `message` and `context` are moved from by the
    /// provider only: when the message didn't get there, both are still the caller's. Throws only std::bad_alloc and
    /// what logging throws.
    ///
    /// Finding the provider costs one hash and one look-up for each segment looked at, whatever the number of services,
    /// and allocates nothing when the first one is served.
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) override;

    /// A new context from newSharedSession() of the process context, which is made if there is none. All contexts that
    /// one connector hands out share their Process data, unless a process context of the host's does otherwise. Throws
    /// std::bad_weak_ptr when a process context is to be made and no std::shared_ptr owns the connector,
    /// std::bad_alloc, and what newSharedSession() throws; a process context that was made by then stays.
    std::shared_ptr<Context> newContext() override;

    std::shared_ptr<Context> setProcessContext(std::shared_ptr<Context> context) override;

    std::shared_ptr<Connector> getPtr() override;

private:
    // The name under which the service of `hash` is registered, empty if it isn't any more.
    std::string registeredName(std::uint64_t hash);

    // Touched by `gate` only.
    boost::shared_mutex registryMutex;

    // Constant after construction: the holds on registryMutex. Before what they guard: host objects that are destroyed
    // with it may come back to the connector.
    const std::unique_ptr<internal::RegistryGate> gate;

    // Guarded by registryMutex: shared to read, exclusive to write. Both tables hold the same keys.
    std::unordered_map<std::uint64_t, std::shared_ptr<ServiceProvider>> providers;
    std::unordered_map<std::uint64_t, std::string> names;

    // Constant after construction.
    std::string name;

    // Guarded by registryMutex.
    std::shared_ptr<Context> processContext;

    // Atomic, sequentially consistent like the providers' flags: whether new providers are to be started or stopped.
    std::atomic<bool> running{true};
};

} // namespace connector
