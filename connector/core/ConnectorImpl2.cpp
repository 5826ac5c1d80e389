#include <connector/api/ServiceNameHash.h>
#include <connector/core/ConnectorImpl2.h>
#include <connector/core/internal/RegistryGate.h>
#include <connector/diagnostics/internal/FrameworkLogger.h>
#include <connector/internal/ProcessContext.h>
#include <connector/internal/ProviderLifecycle.h>

#include <cassert>
#include <exception>
#include <stdexcept>
#include <utility>

namespace connector {

using internal::RegistryGate;

namespace {

[[gnu::cold, gnu::noinline]] Reply refusal(const std::string& text) {
    return makeExceptionalFuture<std::unique_ptr<Message>>(std::invalid_argument(text));
}

// Removes a segment without a provider from the address. Returns why the message can't be delivered, or an empty text
// if the segment is optional. Not inline, so that the path to a provider contains no logging code.
[[gnu::noinline]] std::string passOver(Address& address, RegistryGate& gate) {
    const RegistryGate::CallbackScope logSinks(gate);
    const std::string segment = address.pop();
    if (segment.empty() || segment.front() != '?') {
        std::string text =
            "Message not delivered: service '" + segment + "' not found, remainder of address: " + address.toString();
        FRAMEWORK_LOG(error) << text;
        return text;
    }
    FRAMEWORK_LOG(chatter) << "Skipping optional service '" << segment << "'";
    return {};
}

struct Route {
    std::shared_ptr<ServiceProvider> provider;
    std::uint64_t hash;
};

// The provider of the first segment that has one, with that segment removed from the address; or no provider, with the
// reason in `failure`.
template <class Providers>
Route findRoute(const Providers& providers, RegistryGate& gate, Address& address, std::string& failure) {
    const RegistryGate::SharedHold hold(gate);
    while (!address.empty()) {
        const std::uint64_t hash = address.peekHash();
        if (const auto found = providers.find(hash); found != providers.end()) {
            assert(found->second);
            address.popHash();
            return {found->second, hash};
        }
        if (!(failure = passOver(address, gate)).empty())
            return {};
    }
    failure = "No service specified. Address can't be empty.";
    return {};
}

// Both tables hold the same keys: checked after each change, for the key that was changed.
template <class Providers, class Names>
[[maybe_unused]] bool agree(const Providers& providers, const Names& names, std::uint64_t hash) {
    return providers.size() == names.size() && providers.count(hash) == names.count(hash);
}

} // namespace

ConnectorImpl2::ConnectorImpl2(const std::string& name)
    : gate(std::make_unique<RegistryGate>(registryMutex)), name(name) {}

ConnectorImpl2::~ConnectorImpl2() {
    {
        const RegistryGate::ExclusiveHold hold(*gate);
        // Moved out of the table before any of them is destroyed: a provider's destructor may read the tables.
        const auto dropped = std::exchange(providers, {});
        names.clear();
    }
    // reset() empties the member before it destroys the context, whose destructor may call the connector.
    processContext.reset();
    assert(providers.empty() && names.empty() && !processContext);
}

std::string ConnectorImpl2::getName() const {
    return name;
}

void ConnectorImpl2::start() {
    const RegistryGate::SharedHold hold(*gate);
    const RegistryGate::CallbackScope callbacks(*gate);
    for (const auto& entry : providers)
        internal::startProvider(*entry.second);
    running.exchange(true);
}

void ConnectorImpl2::stop() {
    running.exchange(false);
    const RegistryGate::SharedHold hold(*gate);
    const RegistryGate::CallbackScope callbacks(*gate);
    for (const auto& entry : providers)
        internal::stopProvider(*entry.second);
}

void ConnectorImpl2::addServiceProvider(const std::string& serviceName, std::shared_ptr<ServiceProvider> provider) {
    FRAMEWORK_LOG(chatter) << "Adding service provider: " << serviceName;
    internal::requireProvider(provider);
    const std::uint64_t hash = serviceNameHash(serviceName);
    {
        const RegistryGate::ExclusiveHold hold(*gate);
        const auto [named, added] = names.try_emplace(hash, serviceName);
        if (!added) {
            const std::string text = "Service with name " + serviceName + " already registered (or hash collision).";
            FRAMEWORK_LOG(error) << text;
            throw std::runtime_error(text);
        }
        try {
            providers.emplace(hash, provider);
        } catch (...) {
            names.erase(named);
            throw;
        }
        assert(agree(providers, names, hash));
    }
    internal::matchProvider(*provider, running);
}

void ConnectorImpl2::removeServiceProvider(const std::string& serviceName) {
    const std::uint64_t hash = serviceNameHash(serviceName);
    const RegistryGate::ExclusiveHold hold(*gate);
    if (const auto found = providers.find(hash); found != providers.end()) {
        internal::stopProvider(*found->second);
        names.erase(hash);
        // Removed from the table before it is destroyed: its destructor may read the table.
        const auto dropped = providers.extract(found);
        assert(agree(providers, names, hash));
    }
    FRAMEWORK_LOG(chatter) << "Removed service provider: " << serviceName;
}

std::set<std::string> ConnectorImpl2::listServiceProviders() {
    std::set<std::string> listed;
    const RegistryGate::SharedHold hold(*gate);
    for (const auto& entry : names)
        listed.insert(entry.second);
    return listed;
}

Reply ConnectorImpl2::handle(std::unique_ptr<Message>&& message, Address&& address,
                             std::shared_ptr<Context>&& context) {
    std::string failure;
    const auto [provider, hash] = findRoute(providers, *gate, address, failure);
    if (!provider)
        return refusal(failure);
    try {
        return provider->handle(std::move(message), std::move(address), std::move(context));
    } catch (const std::exception& exception) {
        FRAMEWORK_LOG(warning) << "Propogating exception received from service '" << registeredName(hash)
                               << "': " << exception.what();
        return makeExceptionalFuture<std::unique_ptr<Message>>();
    } catch (...) {
        FRAMEWORK_LOG(warning) << "Propogating exception received from service '" << registeredName(hash) << "'";
        return makeExceptionalFuture<std::unique_ptr<Message>>();
    }
}

std::string ConnectorImpl2::registeredName(std::uint64_t hash) {
    const RegistryGate::SharedHold hold(*gate);
    const auto found = names.find(hash);
    return found == names.end() ? std::string() : found->second;
}

std::shared_ptr<Context> ConnectorImpl2::newContext() {
    RegistryGate::UpgradeableHold hold(*gate);
    if (!processContext) {
        const RegistryGate::UpgradeableHold::Upgrade upgrade(hold);
        processContext = internal::makeProcessContext(*this);
    }
    return processContext->newSharedSession();
}

std::shared_ptr<Context> ConnectorImpl2::setProcessContext(std::shared_ptr<Context> context) {
    const RegistryGate::ExclusiveHold hold(*gate);
    processContext.swap(context);
    return context;
}

std::shared_ptr<Connector> ConnectorImpl2::getPtr() {
    return shared_from_this();
}

} // namespace connector
