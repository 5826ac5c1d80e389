#pragma once

#include <string>
#include <utility>

namespace foundation::msg_svc::exchange {

/// The destination of a message: the name of an exchange and the name of a queue on it. A value type.
class Address {
public:
    /// Either name may be empty; a queue of that name can't be registered.
    Address(std::string exchangeName, std::string queueName)
        : exchangeName(std::move(exchangeName)), queueName(std::move(queueName)) {}

    /// The exchange's name, as given. Valid as long as the address.
    const std::string& getExchangeName() const noexcept { return exchangeName; }
    /// The queue's name, as given. Valid as long as the address.
    const std::string& getQueueName() const noexcept { return queueName; }

private:
    std::string exchangeName;
    std::string queueName;
};

} // namespace foundation::msg_svc::exchange
