#pragma once

#include <connector/api/ServiceProvider.h>

#include <memory>
#include <stdexcept>

namespace connector::internal {

// How both connectors start and stop providers: a provider's own flag decides, so that no provider is started or
// stopped twice in a row, whoever does it and from however many threads.

inline void startProvider(ServiceProvider& provider) {
    if (!provider.running.exchange(true))
        provider.start();
}

inline void stopProvider(ServiceProvider& provider) {
    if (provider.running.exchange(false))
        provider.stop();
}

/// Brings a provider that is being added into line with its connector.
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
