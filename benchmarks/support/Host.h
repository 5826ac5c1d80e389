#pragma once

#include "floor/Router.h"

#include <connector/api/Connector.h>

#include <memory>
#include <string>
#include <utility>

/// The host's part of a request, for the framework and for the floor: a message, a provider that answers at once with
/// the message it received, and a caller.
namespace bench {

using MessagePtr = std::unique_ptr<connector::Message>;
using connector::Reply;

struct Number : connector::Message {
    explicit Number(long number) : number(number) {}
    const long number;
};

inline long numberOf(const MessagePtr& message) {
    return static_cast<const Number&>(*message).number;
}

struct Echo : connector::ServiceProvider {
    Reply handle(MessagePtr&& message, connector::Address&&, std::shared_ptr<connector::Context>&&) override {
        return connector::makeReadyFuture(std::move(message));
    }
};

struct FloorEcho : floor::Provider {
    floor::Future handle(MessagePtr&& message, floor::Address&&, std::shared_ptr<connector::Context>&&) override {
        return floor::ready(std::move(message));
    }
};

inline long request(connector::Connector& connector, const std::string& address) {
    return numberOf(connector.handle(std::make_unique<Number>(1), connector::Address(address), nullptr).get());
}

inline long request(floor::Router& router, const std::string& address) {
    return numberOf(router.handle(std::make_unique<Number>(1), floor::Address(address), nullptr).get());
}

/// A name for each `i`, as a host might choose it.
inline std::string serviceName(long i) {
    return "service" + std::to_string(i);
}

inline std::shared_ptr<connector::Connector> connectorWith(std::shared_ptr<connector::Connector> connector,
                                                           long services) {
    const auto echo = std::make_shared<Echo>();
    for (long i = 0; i < services; ++i)
        connector->addServiceProvider(serviceName(i), echo);
    return connector;
}

} // namespace bench
