#include "floor/Router.h"

#include <connector/api/ServiceNameHash.h>

#include <boost/thread/lock_types.hpp>

#include <utility>

namespace bench::floor {

Provider::~Provider() = default;

void Router::add(std::string_view name, std::shared_ptr<Provider> provider) {
    providers.emplace(connector::serviceNameHash(name), std::move(provider));
}

Future Router::handle(MessagePtr&& message, Address&& address, std::shared_ptr<connector::Context>&& context) {
    std::shared_ptr<Provider> provider;
    {
        // As in the connector: lock_shared() prepares for Boost's thread interruption even if it doesn't wait.
        if (!mutex.try_lock_shared())
            mutex.lock_shared();
        const boost::shared_lock<boost::shared_mutex> lock(mutex, boost::adopt_lock);
        provider = providers.find(address.hash())->second;
        address.drop();
    }
    return provider->handle(std::move(message), std::move(address), std::move(context));
}

} // namespace bench::floor
