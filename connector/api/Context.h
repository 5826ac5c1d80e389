#pragma once

#include <connector/Export.h>
#include <connector/api/Address.h>
#include <connector/api/ContextScope.h>
#include <connector/api/Message.h>
#include <connector/api/Reply.h>

#include <boost/any.hpp>

#include <memory>
#include <string>

namespace connector {

/// Key/value data at five scopes that travels with a message, and through which further messages are sent. A connector
/// creates contexts (newContext()); contexts derived from them share the data of the outer scopes.
///
///     const auto session = connector->newContext()->newSession();
///     session->set("guest", std::string("Ada"), ContextScope::Session);
///     Reply reply = session->newRequest()->handle(std::move(message), Address("bar/coffee"));
///
/// ContextImpl is the framework's implementation. Ownership: contexts are owned by std::shared_ptr. Threads: handle()
/// and newLocal() may run on several threads at once. Data isn't locked; ContextImpl states which operations the host
/// must keep apart.
class CONNECTOR_API_EXPORT Context {
public:
    virtual ~Context();

    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    /// A new context that shares this one's Process data.
    virtual std::shared_ptr<Context> newSharedSession() = 0;

    /// A new context that shares this one's Process and SharedSession data.
    virtual std::shared_ptr<Context> newSession() = 0;

    /// A new context that shares this one's Process, SharedSession and Session data.
    virtual std::shared_ptr<Context> newRequest() = 0;

    /// The context that handle() passes along with a message: this same object, unless a derived class overrides it.
    virtual std::shared_ptr<Context> newLocal() = 0;

    /// Stores `value` under `key` in `scope`, replacing an earlier value. Stores nothing in a scope that doesn't exist.
    /// Throws std::bad_alloc; the earlier value is then unchanged.
    virtual void set(const std::string& key, boost::any value, ContextScope scope) = 0;

    /// Removes `key` from all scopes, including data shared with other contexts. Returns an empty boost::any.
    virtual boost::any erase(const std::string& key) = 0;

    /// Removes `key` from `scope`. Returns the number of entries removed (0 or 1) as a std::size_t, or an empty
    /// boost::any if this context has no store for that scope.
    virtual boost::any erase(const std::string& key, ContextScope scope) = 0;

    /// A copy of the value of `key` in the innermost scope that has it. Throws std::invalid_argument ("No value for the
    /// specified key was found.") if no scope has it.
    virtual boost::any get(const std::string& key) const = 0;

    /// A copy of the value of `key` in `scope`, or an empty boost::any if `scope` doesn't have it.
    virtual boost::any get(const std::string& key, ContextScope scope) const = 0;

    /// Whether any scope has `key`. An empty value counts.
    virtual bool has(const std::string& key) const = 0;

    /// Whether `scope` has `key`.
    virtual bool has(const std::string& key, ContextScope scope) const = 0;

    /// Sends `message` to `address`, with newLocal() as its context, through the connector that made this context. See
    /// Connector::handle(). If the connector no longer exists, or the context never had one, the reply fails with
    /// std::runtime_error ("Connector instance went away!"); message and address stay with the caller.
    virtual Reply handle(std::unique_ptr<Message>&& message, Address&& address) = 0;

protected:
    Context();
};

} // namespace connector
