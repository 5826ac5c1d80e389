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

/// Key/value data at five scopes, and the way to send messages that carry it. A connector hands contexts out
/// (newContext()); further ones are derived from those, sharing the data of the outer scopes. ContextImpl implements
/// it.
///
/// Ownership: contexts are owned by std::shared_ptr. Threads: handle() and newLocal() may run on several threads at
/// once; data takes no lock, so whoever shares a scope between threads keeps writers apart from everybody else.
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

    /// The context that handle() passes on with a message: this very one, unless a derived class decides otherwise.
    virtual std::shared_ptr<Context> newLocal() = 0;

    /// Stores `value` under `key` in `scope`, replacing what was there. In a scope that doesn't exist, stores nothing.
    /// Throws std::bad_alloc; what was there then still is.
    virtual void set(const std::string& key, boost::any value, ContextScope scope) = 0;

    /// Removes `key` from every scope that this context sees, shared ones included. Returns an empty boost::any.
    virtual boost::any erase(const std::string& key) = 0;

    /// Removes `key` from `scope`. Returns the number of entries removed (0 or 1) as a std::size_t, or an empty
    /// boost::any when this context has no data in that scope.
    virtual boost::any erase(const std::string& key, ContextScope scope) = 0;

    /// A copy of the value of `key` in the innermost scope that has it. Throws std::invalid_argument ("No value for the
    /// specified key was found.") when none has.
    virtual boost::any get(const std::string& key) const = 0;

    /// A copy of the value of `key` in `scope`, or an empty boost::any.
    virtual boost::any get(const std::string& key, ContextScope scope) const = 0;

    /// Whether any scope holds `key`.
    virtual bool has(const std::string& key) const = 0;

    /// Whether `scope` holds `key`.
    virtual bool has(const std::string& key, ContextScope scope) const = 0;

    /// Sends `message` to `address` through the connector that made this context, carrying this context. Otherwise as
    /// Connector::handle(). When the connector is gone, the reply fails with std::runtime_error ("Connector instance
    /// went away!") and message and address stay with the caller.
    virtual Reply handle(std::unique_ptr<Message>&& message, Address&& address) = 0;

protected:
    Context();
};

} // namespace connector
