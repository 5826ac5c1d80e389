#pragma once

#include <foundation/Export.h>
#include <foundation/msg_svc/exchange/ExchangeApi.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <shared_mutex>
#include <string>
#include <thread>
#include <unordered_map>

namespace foundation::msg_svc::exchange {

/// The exchange inside one process: a table of names, and delivery on the submitting thread. Hosts get the process's
/// own from ExchangeApi::defaultInstance().
class FOUNDATION_EXPORT DefaultExchange final : public ExchangeApi {
public:
    /// An exchange without queues.
    explicit DefaultExchange(std::string name);

    /// Drops all queues as ExchangeApi::removeQueue() does; exceptions of queueRemoved() are lost. The exchange still
    /// answers while the queues' destructors run.
    ~DefaultExchange() override;

    const std::string& getExchangeName() const override;
    void addQueue(const std::string& queueName, boost::shared_ptr<MessageQueue> queue) override;
    void removeQueue(const std::string& queueName) override;
    boost::unique_future<boost::shared_ptr<const Reply>>
    submitWithReply(const boost::shared_ptr<const Message>& message, const Address& address) override;

private:
    friend class ExchangeApi;
    using Queues = std::unordered_map<std::string, boost::shared_ptr<MessageQueue>>;

    boost::shared_ptr<MessageQueue> find(const std::string& queueName) const;
    void deliver(const Envelope& envelope) const;
    bool dropQueues() noexcept;
    static void closeAtExit() noexcept;

    // Constant after construction.
    const std::string name;

    // Guarded by queuesMutex: shared to read, exclusive to write.
    mutable std::shared_mutex queuesMutex;
    Queues queues;
    std::thread::id closedBy; // the thread that ended the process, once that has happened
};

} // namespace foundation::msg_svc::exchange
