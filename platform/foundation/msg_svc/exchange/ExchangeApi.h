#pragma once

#include <foundation/Export.h>
#include <foundation/msg_svc/exchange/Address.h>
#include <foundation/msg_svc/exchange/Message.h>
#include <foundation/msg_svc/exchange/MessageQueue.h>
#include <foundation/msg_svc/exchange/Reply.h>

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/thread/future.hpp>

#include <string>

namespace foundation::msg_svc::exchange {

class DefaultExchange;

/// The message-service exchange of the process. Queues are registered under names; a message submitted to a name is
/// delivered to its queue, and one reply comes back.
///
/// Threads: any thread may call any operation at any time. The exchange has no thread of its own.
class FOUNDATION_EXPORT ExchangeApi {
public:
    ExchangeApi(const ExchangeApi&) = delete;
    ExchangeApi& operator=(const ExchangeApi&) = delete;
    virtual ~ExchangeApi();

    /// The exchange of this process, always the same. Made by the first call and never destroyed: destructors of
    /// globals, and threads that still run when the process ends, may use it like any other code.
    ///
    /// When the process's static objects are destroyed or, if that is earlier, this library is unloaded, the exchange
    /// drops its queues as removeQueue() does; exceptions of queueRemoved() are then lost. It still answers while the
    /// queues' destructors run, and afterwards. A queue that a destructor registers after that works, and is dropped
    /// when that destructor has returned. A queue that another thread registers after that is never destroyed.
    static boost::shared_ptr<ExchangeApi> instance();

    /// The same exchange, as the type that queues take.
    static boost::shared_ptr<DefaultExchange> defaultInstance();

    /// The exchange's own name. Valid as long as the exchange.
    virtual const std::string& getExchangeName() const = 0;

    /// Registers `queue` under `name`; the exchange then owns it. Throws std::invalid_argument ("Queue name can't be
    /// empty.", "Queue can't be empty."), std::runtime_error ("Queue 'NAME' already registered.") and std::bad_alloc;
    /// then nothing is registered, and the exchange keeps no reference to `queue`.
    virtual void addQueue(const std::string& name, boost::shared_ptr<MessageQueue> queue) = 0;

    /// Drops the queue of `name`, calls its MessageQueue::queueRemoved() and releases it. A queue that is delivering is
    /// destroyed after that delivery. Does nothing for a name without a queue.
    virtual void removeQueue(const std::string& name) = 0;

    /// Delivers `message` to the queue that `address` names, on the calling thread. No lock is held, so a queue may
    /// itself submit. Only the queue's name counts, because a process has one exchange.
    ///
    /// The future gets the queue's reply as soon as that is sent, which may be after this call has returned. If no
    /// queue has the name, it gets the message's createUndeliverableReply(). It fails with the exception that the queue
    /// threw instead of replying, or that createUndeliverableReply() threw, with its type preserved. It fails with
    /// boost::broken_promise if all copies of the routing record are destroyed without a reply; an empty `message` to a
    /// name without a queue also ends so.
    ///
    /// Throws std::bad_alloc. Finding the queue takes constant time.
    virtual boost::unique_future<boost::shared_ptr<const Reply>>
    submitWithReply(const boost::shared_ptr<const Message>& message, const Address& address) = 0;

protected:
    ExchangeApi() = default;
};

} // namespace foundation::msg_svc::exchange
