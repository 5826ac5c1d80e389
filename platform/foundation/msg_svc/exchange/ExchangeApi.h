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

/// The process's message-service exchange: queues are registered under names, a message submitted to a name is carried
/// to its queue, and one reply comes back.
///
/// Threads: any thread may call any operation at any time. There is no thread of the exchange's own.
class FOUNDATION_EXPORT ExchangeApi {
public:
    ExchangeApi(const ExchangeApi&) = delete;
    ExchangeApi& operator=(const ExchangeApi&) = delete;
    virtual ~ExchangeApi();

    /// The exchange of this process, always the same. Made by the first call and never destroyed: destructors of
    /// globals and threads that still run when the process ends may use it like any other code.
    ///
    /// When the process's static objects are destroyed or, if that comes first, this library is unloaded, the exchange
    /// drops its queues, as removeQueue() does; what their queueRemoved() throws is lost then. It still answers while
    /// their destructors run, and afterwards. A queue that a destructor registers after that works, and is dropped when
    /// that destructor has returned; a queue that another thread registers stays until the process is gone, and isn't
    /// destroyed.
    static boost::shared_ptr<ExchangeApi> instance();

    /// The same exchange, as queues want it.
    static boost::shared_ptr<DefaultExchange> defaultInstance();

    /// The exchange's own name. Good as long as the exchange.
    virtual const std::string& getExchangeName() const = 0;

    /// Registers `queue` under `name`; the exchange owns it from then on. Throws std::invalid_argument ("Queue name
    /// can't be empty.", "Queue can't be empty."), std::runtime_error ("Queue 'NAME' already registered.") and
    /// std::bad_alloc; then nothing is registered, and the exchange has let go of `queue`.
    virtual void addQueue(const std::string& name, boost::shared_ptr<MessageQueue> queue) = 0;

    /// Drops the queue of `name`, tells it (MessageQueue::queueRemoved()) and lets go of it. A queue that is delivering
    /// finishes that first: it lives until then. A name without a queue is no error.
    virtual void removeQueue(const std::string& name) = 0;

    /// Delivers `message` to the queue that `address` names, on the calling thread, with no lock held: a queue may
    /// submit in its turn. There being one exchange in a process, the name of the queue is all that is looked at.
    ///
    /// The future has the queue's reply as soon as that is sent, which may be after this has returned. It has the
    /// message's createUndeliverableReply() when no queue has the name. It fails with what the queue threw instead of
    /// replying, or with what createUndeliverableReply() threw, of its own type; and with boost::broken_promise when
    /// every copy of the routing record is gone and no reply was sent, which is also what becomes of an empty `message`
    /// to a name without a queue.
    ///
    /// Throws std::bad_alloc. Finding the queue takes constant time, whatever the number of queues.
    virtual boost::unique_future<boost::shared_ptr<const Reply>>
    submitWithReply(const boost::shared_ptr<const Message>& message, const Address& address) = 0;

protected:
    ExchangeApi() = default;
};

} // namespace foundation::msg_svc::exchange
