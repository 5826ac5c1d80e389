#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/Envelope.h>

#include <boost/exception_ptr.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <cstdlib>
#include <exception>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

namespace foundation::msg_svc::exchange {
namespace {

/// An exception in the form that a boost::promise takes, rethrown unchanged. boost::current_exception() knows only some
/// standard types and reduces types derived from them to those.
class CarriedException : public boost::exception_detail::clone_base {
public:
    explicit CarriedException(std::exception_ptr exception) : exception(std::move(exception)) {}

private:
    const clone_base* clone() const override { return new CarriedException(*this); }
    void rethrow() const override { std::rethrow_exception(exception); }

    const std::exception_ptr exception;
};

} // namespace

DefaultExchange::DefaultExchange(std::string name) : name(std::move(name)) {}

DefaultExchange::~DefaultExchange() {
    while (dropQueues()) {
    }
}

const std::string& DefaultExchange::getExchangeName() const {
    return name;
}

void DefaultExchange::addQueue(const std::string& queueName, boost::shared_ptr<MessageQueue> queue) {
    if (queueName.empty())
        throw std::invalid_argument("Queue name can't be empty.");
    if (!queue)
        throw std::invalid_argument("Queue can't be empty.");
    // `queue` keeps its reference, so that no queue is destroyed under the lock if the table can't grow.
    Queues added{{queueName, queue}};
    bool late;
    {
        const std::unique_lock<std::shared_mutex> lock(queuesMutex);
        queues.merge(added);
        late = closedBy == std::this_thread::get_id();
    }
    if (late)
        closeAtExit();
    if (!added.empty())
        throw std::runtime_error("Queue '" + queueName + "' already registered.");
}

void DefaultExchange::removeQueue(const std::string& queueName) {
    Queues::node_type removed;
    {
        const std::unique_lock<std::shared_mutex> lock(queuesMutex);
        removed = queues.extract(queueName);
    }
    if (removed)
        removed.mapped()->queueRemoved();
}

boost::unique_future<boost::shared_ptr<const Reply>>
DefaultExchange::submitWithReply(const boost::shared_ptr<const Message>& message, const Address& address) {
    const auto promise = boost::make_shared<Routing::Promise>();
    auto future = promise->get_future();
    try {
        deliver(Envelope(message, address, Routing(promise)));
    } catch (...) {
        try {
            promise->set_exception(
                boost::exception_ptr(boost::make_shared<CarriedException>(std::current_exception())));
        } catch (const boost::promise_already_satisfied&) {
            // A reply was sent before.
        } catch (const std::bad_alloc&) {
            // A promise that is destroyed without a value allocates, and ends the process if it can't.
            MessageQueue::sendReply(Routing(promise), nullptr);
            throw;
        }
    }
    return future;
}

// Returns whether there were any. Their destructors may register others.
bool DefaultExchange::dropQueues() noexcept {
    Queues dropped;
    {
        const std::unique_lock<std::shared_mutex> lock(queuesMutex);
        dropped.swap(queues);
    }
    for (const auto& named : dropped) {
        try {
            named.second->queueRemoved();
        } catch (...) { // NOLINT(bugprone-empty-catch): no caller can receive it
        }
    }
    return !dropped.empty();
}

// Called again for each queue that a destructor registers at the end of the process, so that this queue is dropped
// after the destructor. Not called for queues of other threads, which might register them without end.
void DefaultExchange::closeAtExit() noexcept {
    std::atexit([] {
        const auto exchange = ExchangeApi::defaultInstance();
        {
            const std::unique_lock<std::shared_mutex> lock(exchange->queuesMutex);
            exchange->closedBy = std::this_thread::get_id();
        }
        exchange->dropQueues();
    });
}

void DefaultExchange::deliver(const Envelope& envelope) const {
    if (const auto queue = find(envelope.getAddress().getQueueName()))
        queue->deliver(&envelope);
    else if (const auto& message = envelope.getMessage())
        MessageQueue::sendReply(envelope.getRouting(), message->createUndeliverableReply(envelope));
}

boost::shared_ptr<MessageQueue> DefaultExchange::find(const std::string& queueName) const {
    const std::shared_lock<std::shared_mutex> lock(queuesMutex);
    const auto found = queues.find(queueName);
    return found == queues.end() ? boost::shared_ptr<MessageQueue>() : found->second;
}

} // namespace foundation::msg_svc::exchange
