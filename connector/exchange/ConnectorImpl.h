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

/// The connector over the process's message-service exchange: each provider becomes a queue of the exchange, each
/// message makes the round trip through it. The connector itself keeps no registry.
///
/// What differs from ConnectorImpl2:
///
/// | matter                 | here                                                                                  |
/// |------------------------|---------------------------------------------------------------------------------------|
/// | name                   | the exchange's; all of a process's exchange connectors share one exchange and so one  |
/// |                        | name and one set of services, also with whoever else uses the exchange                |
/// | services               | keyed by their names, letter by letter; '?' is a letter like any other, no service is |
/// |                        | optional                                                                              |
/// | start(), stop()        | set what becomes of providers that are added later; registered ones are left alone    |
/// | removeServiceProvider  | doesn't stop the provider                                                             |
/// | listServiceProviders   | always throws                                                                         |
/// | handle                 | waits for the reply: the future that it returns is resolved already                   |
/// | a provider's exception | its text comes back in a std::runtime_error                                           |
/// | log                    | none                                                                                  |
///
/// Ownership: made by std::make_shared (getPtr() and newContext() throw std::bad_weak_ptr otherwise). Owns its process
/// context only: a provider belongs to the exchange from registration to removal and for the length of each call, and
/// outlives the connector. Remove the providers before the connector's library is unloaded; the exchange would be left
/// with code that is gone.
///
/// Threads: takes no lock of its own; the exchange's is held neither while a provider is called nor while one is
/// destroyed, so a provider may call any operation of any connector from there. Any thread may call any operation at
/// any time, but newContext() and setProcessContext() of one connector must be kept apart from themselves and each
/// other. The exchange delivers on the thread that sends.
class CONNECTOR_IMPL_EXPORT ConnectorImpl : public Connector, public std::enable_shared_from_this<Connector> {
public:
    /// A started connector. Services that are on the exchange already can be reached at once.
    ConnectorImpl();

    /// Leaves all services where they are.
    ~ConnectorImpl() override;

    /// The name of the exchange.
    std::string getName() const override;

    void start() override;
    void stop() override;

    /// Starts `provider` if the connector is started, or stops it if the connector is stopped, then registers it. What
    /// its start() or stop() throws leaves here, with nothing registered. So do std::bad_alloc and the exchange's
    /// refusals, std::invalid_argument ("Queue name can't be empty.") and std::runtime_error ("Queue 'NAME' already
    /// registered."): nothing is registered, but the provider is started or stopped already. Throws
    /// std::invalid_argument ("Service provider can't be empty.") before it does anything.
    void addServiceProvider(const std::string& name, std::shared_ptr<ServiceProvider> provider) override;

    /// Drops the provider of `name`, or whatever else the exchange has under that name, without stopping it. A call of
    /// the provider that's under way is finished first, so the provider may die on that call's thread.
    void removeServiceProvider(const std::string& name) override;

    /// Throws std::runtime_error ("Listing service providers isn't supported by this implementation.").
    std::set<std::string> listServiceProviders() override;

    /// Sends `message` through the exchange and waits for the reply: with a provider that resolves its future on
    /// another thread, for as long as that takes.
    ///
    /// The future has failed with std::invalid_argument when the address is empty or its first segment is ("Address
    /// can't be empty."); and with std::runtime_error when no service has the name ("No service named: NAME"), when the
    /// provider or its future failed with a std::exception (the text of that one), and when something on the exchange
    /// that is none of this library's answered the message and not with one of its replies ("Unknown error!").
    ///
    /// What the exchange has stored in place of a reply is thrown: an exception of the provider's that isn't a
    /// std::exception, what another party's queue threw, boost::broken_promise when that queue dropped the message. So
    /// is std::bad_alloc.
    ///
    /// The first segment is gone from `address`. If it was empty, or there was no memory for a request, `message` and
    /// `context` are still the caller's; else they are the request's, which dies with all that nobody took from it.
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) override;

    /// A new context from newSharedSession() of the process context, which is made if there is none. Throws
    /// std::bad_weak_ptr when a process context is to be made and no std::shared_ptr owns the connector,
    /// std::bad_alloc, and what newSharedSession() throws; a process context that was made by then stays.
    std::shared_ptr<Context> newContext() override;

    std::shared_ptr<Context> setProcessContext(std::shared_ptr<Context> context) override;

    std::shared_ptr<Connector> getPtr() override;

private:
    // Constant after construction.
    const boost::shared_ptr<foundation::msg_svc::exchange::ExchangeApi> exchangeApi;
    const boost::shared_ptr<foundation::msg_svc::exchange::DefaultExchange> defaultExchange;

    // Not guarded: the host keeps newContext() and setProcessContext() apart.
    std::shared_ptr<Context> processContext;

    // Atomic, sequentially consistent like the providers' flags: whether new providers are to be started or stopped.
    std::atomic<bool> running{true};
};

} // namespace connector
