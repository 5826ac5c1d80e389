#pragma once

#include <connector/api/ServiceProvider.h>

#include <memory>
#include <stdexcept>

namespace connector::internal {

// Both connectors start and stop providers with these functions. The provider's own flag decides, so that a provider
// registered under several names or with several connectors isn't started or stopped twice in a row.

inline void startProvider(ServiceProvider& provider) {
    if (!provider.running.exchange(true))
        provider.start();
}

inline void stopProvider(ServiceProvider& provider) {
    if (provider.running.exchange(false))
        provider.stop();
}

/// Starts or stops a provider that is being added, so that it matches its connector.
inline void matchProvider(ServiceProvider& provider, bool connectorRunning) {
    if (connectorRunning)
        startProvider(provider);
    else
        stopProvider(provider);
}

inline void requireProvider(const std::shared_ptr<ServiceProvider>& provider) {
    if (!provider)
        throw std::invalid_argument("Service provider can't be empty.");
}

} // namespace connector::internal
