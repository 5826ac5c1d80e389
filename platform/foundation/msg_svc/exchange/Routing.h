#pragma once

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/smart_ptr/weak_ptr.hpp>
#include <boost/thread/future.hpp>

#include <utility>

namespace foundation::msg_svc::exchange {

class DefaultExchange;
class Reply;

/// The way back: ties a reply to the submission that it answers. MessageQueue::sendReply() takes it.
///
/// A value type whose copies stand for one submission. A queue that answers later, on any thread, keeps a copy. When
/// the last copy goes without a reply, the submitter's future fails with boost::broken_promise, so nobody waits for
/// ever. Threads: any number may reply on copies of one record at once; the first reply counts.
class Routing {
public:
    /// A record of the same submission as `other`, for a reply that goes through an exchange. The exchange needn't be
    /// alive: inside a process the record finds its submitter by itself.
    Routing(const Routing& other, const boost::weak_ptr<DefaultExchange>&) : promise(other.promise) {}

private:
    friend class DefaultExchange;
    friend class MessageQueue;
    using Promise = boost::promise<boost::shared_ptr<const Reply>>;

    explicit Routing(boost::shared_ptr<Promise> promise) : promise(std::move(promise)) {}

    boost::shared_ptr<Promise> promise;
};

} // namespace foundation::msg_svc::exchange
