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

// These settings change the layout of boost::shared_mutex on some platforms.
#if BOOST_THREAD_VERSION != 2 || defined(BOOST_THREAD_V2_SHARED_MUTEX) ||                                              \
    (defined(BOOST_THREAD_PLATFORM_WIN32) && defined(BOOST_THREAD_PROVIDES_GENERIC_SHARED_MUTEX_ON_WIN))
#error "Leave BOOST_THREAD_VERSION and BOOST_THREAD_V2_SHARED_MUTEX undefined: the library uses the default mutex."
#endif

namespace connector {

namespace internal {
class RegistryGate;
}

/// The in-process connector: it has its own registry of providers and calls them on the caller's thread. A segment of
/// an address that begins with '?' names an optional service, which is skipped if it isn't registered.
///
///     const auto connector = std::make_shared<ConnectorImpl2>();
///     connector->addServiceProvider("greet", std::make_shared<Greeter>());
///     Reply reply = connector->handle(std::make_unique<Text>("world"), Address("?audit/greet"), nullptr);
///
/// Names: services are keyed by serviceNameHash() of their names. A name is taken if a service has the same name, the
/// same name with or without one leading '?', or another name with the same hash.
///
/// Ownership: create it with std::make_shared. It owns its providers and its process context until they are removed or
/// replaced. Its destructor releases the providers without stopping them, then the process context. Their destructors
/// may call handle(), listServiceProviders(), start(), stop() and getName(), which find no providers; getPtr() throws
/// std::bad_weak_ptr. They must not register a provider or set a process context.
///
/// Threads: any thread may call any operation at any time. One reader-writer lock guards the registry and the process
/// context; neither readers nor writers starve.
///
/// Callbacks: a provider's handle() runs without the lock and may call any operation. A provider's start(), stop() and
/// destructor, newSharedSession() of the process context, and log sinks may run under it. From there, handle(),
/// listServiceProviders(), start(), stop(), getName() and getPtr() work. addServiceProvider(), removeServiceProvider(),
/// setProcessContext() and newContext() would deadlock: they throw std::system_error
/// (std::errc::resource_deadlock_would_occur) and change nothing. A callback must not wait for another thread that uses
/// the connector, or release the last reference to it. docs/threads-and-locks.md lists the callbacks of each operation.
///
/// Logging: on the channel "connector::framework". What a log sink or filter throws is thrown by the operation that
/// logs.
class CONNECTOR_IMPL_EXPORT ConnectorImpl2 : public Connector, public std::enable_shared_from_this<Connector> {
public:
    /// A started connector without providers.
    ConnectorImpl2(const std::string& name = "default");
    ~ConnectorImpl2() override;

    /// The name given at construction. Takes no lock.
    std::string getName() const override;

    /// Starts every registered provider that isn't running, then marks the connector as started. If a provider's
    /// start() throws, so does this operation: that provider counts as running, later ones are not started, and the
    /// connector keeps its state. Takes the lock shared.
    void start() override;

    /// Marks the connector as stopped, then stops every registered provider that is running. If a provider's stop()
    /// throws, so does this operation: that provider counts as stopped, and later ones are not stopped. Takes the lock
    /// shared.
    void stop() override;

    /// Registers `provider`, with the lock held exclusively. Then, without it, starts it if the connector is started,
    /// or stops it if the connector is stopped. Throws std::invalid_argument ("Service provider can't be empty."),
    /// std::runtime_error ("Service with name NAME already registered (or hash collision).", also logged) and
    /// std::bad_alloc; the registry is then unchanged, and the provider wasn't called. If the provider's start() or
    /// stop() throws, so does this operation; the provider is registered then.
    void addServiceProvider(const std::string& serviceName, std::shared_ptr<ServiceProvider> provider) override;

    /// Stops the provider of `serviceName` if it is running, then releases it. A name that isn't registered is not an
    /// error. If the provider's stop() throws, so does this operation: the provider stays registered and counts as
    /// stopped. If writing the log record throws, the provider has been removed. Takes the lock exclusively.
    void removeServiceProvider(const std::string& serviceName) override;

    /// The names, as they were registered. Takes the lock shared.
    std::set<std::string> listServiceProviders() override;

    /// Routes `message` on the calling thread and returns the provider's own future, unchanged. Takes the lock shared
    /// until it has found the provider, and again to log the name of a provider that threw.
    ///
    /// The returned future has already failed in these cases:
    /// - `address` is empty, or names only optional services that aren't registered: std::invalid_argument ("No service
    ///   specified. Address can't be empty.").
    /// - The first service that isn't optional isn't registered: std::invalid_argument ("Message not delivered: service
    ///   'NAME' not found, remainder of address: REST", also logged).
    /// - The provider threw: the provider's own exception (logged as a warning).
    ///
    /// The segments examined so far are removed from `address`. Only the provider moves from `message` and `context`:
    /// if no provider was found, the caller still owns both. Throws only std::bad_alloc and what log sinks and filters
    /// throw.
    ///
    /// Costs one hash and one look-up for each segment examined, for any number of services. If the first segment names
    /// a registered service, nothing is allocated.
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) override;

    std::shared_ptr<Context> newContext() override;
    std::shared_ptr<Context> setProcessContext(std::shared_ptr<Context> context) override;
    std::shared_ptr<Connector> getPtr() override;

private:
    // The name under which the service of `hash` is registered; empty if it was removed.
    std::string registeredName(std::uint64_t hash);

    // Used by `gate` only.
    boost::shared_mutex registryMutex;

    // Constant after construction. Takes registryMutex. Declared before the members that it guards: host objects that
    // are destroyed with those may call the connector.
    const std::unique_ptr<internal::RegistryGate> gate;

    // Guarded by registryMutex: shared to read, exclusive to write. Both tables hold the same keys.
    std::unordered_map<std::uint64_t, std::shared_ptr<ServiceProvider>> providers;
    std::unordered_map<std::uint64_t, std::string> names;

    // Constant after construction.
    std::string name;

    // Guarded by registryMutex.
    std::shared_ptr<Context> processContext;

    // Atomic, sequentially consistent like the providers' flags: whether providers are started or stopped when added.
    std::atomic<bool> running{true};
};

} // namespace connector
