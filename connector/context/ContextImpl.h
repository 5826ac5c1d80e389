#pragma once

#include <connector/Export.h>
#include <connector/api/Connector.h>
#include <connector/api/Context.h>
#include <connector/context/ContextData.h>

#include <memory>
#include <string>

namespace connector {

/// The framework's Context: five stores, one a scope, shared between contexts as the derivations say, and a weak link
/// to the connector through which it sends.
///
///     derivation         shares the parent's stores of        starts empty in
///     newSharedSession   Process                              SharedSession, Session, Request, Local
///     newSession         Process, SharedSession               Session, Request, Local
///     newRequest         Process, SharedSession, Session      Request, Local
///     newLocal           all five: it is the same object
///
/// A store is made when it is first written to, or when a derived context is to share it; reading never makes one. From
/// a derivation on, parent and child share the store even if neither had put anything into it. A derivation or a set()
/// that throws std::bad_alloc may have made a store, which stays, and has changed nothing else.
///
/// Ownership: contexts are owned by std::shared_ptr (newLocal() and handle() throw std::bad_weak_ptr otherwise), hold
/// their stores strongly and their connector weakly. Contexts don't know each other. Data and derivations work on after
/// the connector is gone.
///
/// Threads: takes no lock. handle() and newLocal() may run on several threads at once. Reading a store is safe beside
/// reading; a set() or erase() on a store must be kept apart from every other use of that store, also through other
/// contexts. A set() or a derivation may make a store, so it must be kept apart from every other use of the same
/// context but handle() and newLocal().
class CONNECTOR_IMPL_EXPORT ContextImpl : public Context, public std::enable_shared_from_this<Context> {
public:
    /// A context without data that sends through `connector`; without one, nowhere.
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

    /// Passes newLocal() on as the message's context, so a derived class decides there what travels. Keeps the
    /// connector alive for the length of the call. What the connector's handle() throws passes on. Without a connector
    /// the reply fails as Context::handle() says.
    Reply handle(std::unique_ptr<Message>&& message, Address&& address) override;

protected:
    /// The store of a scope, made if there is none yet. set() and the derivations ask for stores through these only, so
    /// a derived class may supply its own: values are then set in it, and derived contexts share it. Reading and
    /// erasing never call them and look at the stores of this class alone; a derived class that supplies a store
    /// overrides them too.
    /// @{
    virtual std::shared_ptr<ContextData> getProcess();
    virtual std::shared_ptr<ContextData> getSharedSession();
    virtual std::shared_ptr<ContextData> getSession();
    virtual std::shared_ptr<ContextData> getRequest();
    virtual std::shared_ptr<ContextData> getLocal();
    /// @}

private:
    std::shared_ptr<Context> derive(ContextScope innermostShared);
    ContextData* existing(ContextScope scope) const noexcept;
    const boost::any* find(const std::string& key) const;

    // Constant after construction.
    std::weak_ptr<Connector> weakConnector;

    // Empty until somebody asks for the store; never empty again.
    std::shared_ptr<ContextData> processData;
    std::shared_ptr<ContextData> sharedSessionData;
    std::shared_ptr<ContextData> sessionData;
    std::shared_ptr<ContextData> requestData;
    std::shared_ptr<ContextData> localData;
};

} // namespace connector
