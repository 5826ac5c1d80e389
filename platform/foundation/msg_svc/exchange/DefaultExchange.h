#pragma once

#include <foundation/Export.h>
#include <foundation/msg_svc/exchange/ExchangeApi.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <shared_mutex>
#include <string>
#include <unordered_map>

namespace foundation::msg_svc::exchange {

/// The exchange inside one process: a table of names, and delivery on the submitting thread. Hosts take the process's
/// own from ExchangeApi::defaultInstance().
class FOUNDATION_EXPORT DefaultExchange final : public ExchangeApi {
public:
    /// An exchange without queues.
    explicit DefaultExchange(std::string name);
    ~DefaultExchange() override;

    const std::string& getExchangeName() const override;
    void addQueue(const std::string& queueName, boost::shared_ptr<MessageQueue> queue) override;
    void removeQueue(const std::string& queueName) override;
    boost::unique_future<boost::shared_ptr<const Reply>>
    submitWithReply(const boost::shared_ptr<const Message>& message, const Address& address) override;

private:
    using Queues = std::unordered_map<std::string, boost::shared_ptr<MessageQueue>>;

    boost::shared_ptr<MessageQueue> find(const std::string& queueName) const;
    void deliver(const Envelope& envelope) const;

    // Constant after construction.
    const std::string name;

    // Guarded by queuesMutex: shared to read, exclusive to write.
    mutable std::shared_mutex queuesMutex;
    Queues queues;
};

} // namespace foundation::msg_svc::exchange
