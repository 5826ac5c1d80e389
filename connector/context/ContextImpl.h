#pragma once

#include <connector/Export.h>
#include <connector/api/Connector.h>
#include <connector/api/Context.h>
#include <connector/context/ContextData.h>

#include <array>
#include <memory>
#include <string>

namespace connector {

/// The framework's Context: five stores, one for each scope, and a weak pointer to the connector through which it
/// sends. Contexts derived from one another share the stores of the outer scopes.
///
///     const auto session = connector->newContext()->newSession();
///     session->set("guest", std::string("Ada"), ContextScope::Session);
///     const auto guest = boost::any_cast<std::string>(session->newRequest()->get("guest"));
///
///     derivation         shares the parent's stores of        starts empty in
///     newSharedSession   Process                              SharedSession, Session, Request, Local
///     newSession         Process, SharedSession               Session, Request, Local
///     newRequest         Process, SharedSession, Session      Request, Local
///     newLocal           all five: it is the same object
///
/// A store is created by the first set() in its scope, or by a derivation: from then on parent and child share it, even
/// if it is empty. Reading never creates a store. If a derivation or a set() throws std::bad_alloc, it may have created
/// a store, which is kept; nothing else has changed.
///
/// Ownership: contexts are owned by std::shared_ptr; otherwise newLocal(), and handle() if the connector exists, throw
/// std::bad_weak_ptr. A context owns its stores together with the other contexts that share them. It doesn't refer to
/// these contexts. After the connector is destroyed, data and derivations still work.
///
/// Threads: takes no lock. handle() and newLocal() may run on several threads at once, and so may operations that read.
/// The host must keep set() and erase() apart from every other use of the same store, also through other contexts. A
/// set() or a derivation may create a store: the host must keep it apart from every other use of the same context
/// except handle() and newLocal(). A value's destructor, run by set() or erase(), may use the context again.
class CONNECTOR_IMPL_EXPORT ContextImpl : public Context, public std::enable_shared_from_this<Context> {
public:
    /// A context without data, which sends through `connector`. Without a connector, its handle() fails every reply.
    ContextImpl(std::weak_ptr<Connector> connector = std::weak_ptr<Connector>());
    ~ContextImpl() override;

    std::shared_ptr<Context> newSharedSession() override;
    std::shared_ptr<Context> newSession() override;
    std::shared_ptr<Context> newRequest() override;
    std::shared_ptr<Context> newLocal() override;

    void set(const std::string& key, boost::any value, ContextScope scope) override;
    boost::any erase(const std::string& key) override;
    boost::any erase(const std::string& key, ContextScope scope) override;
    boost::any get(const std::string& key) const override;
    boost::any get(const std::string& key, ContextScope scope) const override;
    bool has(const std::string& key) const override;
    bool has(const std::string& key, ContextScope scope) const override;

    /// Sends `message` to `address` with newLocal() as its context; a derived class may override newLocal() to send
    /// another one. Keeps the connector alive during the call. Throws what newLocal() and the connector's handle()
    /// throw. If the connector no longer exists, or the context never had one, the reply fails with std::runtime_error
    /// ("Connector instance went away!"); message and address stay with the caller.
    Reply handle(std::unique_ptr<Message>&& message, Address&& address) override;

protected:
    /// The store of a scope, created if there is none. Never empty. set() and the derivations get stores only from
    /// these functions, so a derived class may supply its own store: values are then set in it, and derived contexts
    /// share it. get(), has() and erase() use only the stores of this class; a derived class that supplies a store
    /// overrides them too.
    /// @{
    virtual std::shared_ptr<ContextData> getProcess();
    virtual std::shared_ptr<ContextData> getSharedSession();
    virtual std::shared_ptr<ContextData> getSession();
    virtual std::shared_ptr<ContextData> getRequest();
    virtual std::shared_ptr<ContextData> getLocal();
    /// @}

private:
    // The members that hold the stores, in the order of ContextScope.
    static constexpr auto stores() noexcept {
        return std::array{&ContextImpl::processData, &ContextImpl::sharedSessionData, &ContextImpl::sessionData,
                          &ContextImpl::requestData, &ContextImpl::localData};
    }

    // A new context that shares the stores of `innermostShared` and of the scopes outside it.
    std::shared_ptr<Context> derive(ContextScope innermostShared);
    // The store of `scope`, or null if it wasn't created or `scope` is none of the five.
    ContextData* existing(ContextScope scope) const noexcept;
    // The value of `key` in the innermost scope that has it, or null.
    const boost::any* find(const std::string& key) const;

    // Constant after construction.
    std::weak_ptr<Connector> weakConnector;

    // Each is empty until its store is created, and never empty again.
    std::shared_ptr<ContextData> processData;
    std::shared_ptr<ContextData> sharedSessionData;
    std::shared_ptr<ContextData> sessionData;
    std::shared_ptr<ContextData> requestData;
    std::shared_ptr<ContextData> localData;
};

} // namespace connector
