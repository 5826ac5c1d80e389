#pragma once

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/smart_ptr/weak_ptr.hpp>
#include <boost/thread/future.hpp>

#include <utility>

namespace foundation::msg_svc::exchange {

class DefaultExchange;
class Reply;

/// The routing record of a submission, which connects a reply to it. MessageQueue::sendReply() takes one.
///
/// A value type whose copies belong to the same submission. A queue that answers later, on any thread, keeps a copy. If
/// the last copy is destroyed without a reply, the submitter's future fails with boost::broken_promise, so that no
/// submitter waits forever. Threads: any number may reply on copies of one record at once; the first reply counts.
class Routing {
public:
    /// A record of the same submission as `other`, for a reply through an exchange. The exchange may already be
    /// destroyed: inside a process, the record itself refers to its submitter.
    Routing(const Routing& other, const boost::weak_ptr<DefaultExchange>&) : promise(other.promise) {}

private:
    friend class DefaultExchange;
    friend class MessageQueue;
    using Promise = boost::promise<boost::shared_ptr<const Reply>>;

    explicit Routing(boost::shared_ptr<Promise> promise) : promise(std::move(promise)) {}

    boost::shared_ptr<Promise> promise;
};

} // namespace foundation::msg_svc::exchange
