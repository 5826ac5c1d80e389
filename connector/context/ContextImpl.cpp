#include <connector/context/ContextImpl.h>

#include <stdexcept>
#include <utility>

namespace connector {
namespace {

std::shared_ptr<ContextData> storeIn(std::shared_ptr<ContextData>& slot) {
    if (!slot)
        slot = std::make_shared<ContextData>();
    return slot;
}

} // namespace

ContextImpl::ContextImpl(std::weak_ptr<Connector> connector) : weakConnector(std::move(connector)) {}

ContextImpl::~ContextImpl() = default;

std::shared_ptr<Context> ContextImpl::newSharedSession() {
    return derive(ContextScope::Process);
}

std::shared_ptr<Context> ContextImpl::newSession() {
    return derive(ContextScope::SharedSession);
}

std::shared_ptr<Context> ContextImpl::newRequest() {
    return derive(ContextScope::Session);
}

std::shared_ptr<Context> ContextImpl::newLocal() {
    return shared_from_this();
}

std::shared_ptr<Context> ContextImpl::derive(ContextScope innermostShared) {
    auto child = std::make_shared<ContextImpl>(weakConnector);
    child->processData = getProcess();
    if (innermostShared >= ContextScope::SharedSession)
        child->sharedSessionData = getSharedSession();
    if (innermostShared >= ContextScope::Session)
        child->sessionData = getSession();
    return child;
}

void ContextImpl::set(const std::string& key, boost::any value, ContextScope scope) {
    std::shared_ptr<ContextData> store;
    switch (scope) {
    case ContextScope::Process:
        store = getProcess();
        break;
    case ContextScope::SharedSession:
        store = getSharedSession();
        break;
    case ContextScope::Session:
        store = getSession();
        break;
    case ContextScope::Request:
        store = getRequest();
        break;
    case ContextScope::Local:
        store = getLocal();
        break;
    default:
        return;
    }
    store->set(key, std::move(value));
}

boost::any ContextImpl::erase(const std::string& key) {
    for (const auto* slot : {&processData, &sharedSessionData, &sessionData, &requestData, &localData})
        if (*slot)
            (*slot)->erase(key);
    return boost::any();
}

boost::any ContextImpl::erase(const std::string& key, ContextScope scope) {
    ContextData* store = existing(scope);
    return store ? store->erase(key) : boost::any();
}

boost::any ContextImpl::get(const std::string& key) const {
    const boost::any* value = find(key);
    if (!value)
        throw std::invalid_argument("No value for the specified key was found.");
    return *value;
}

boost::any ContextImpl::get(const std::string& key, ContextScope scope) const {
    const ContextData* store = existing(scope);
    return store ? store->get(key) : boost::any();
}

bool ContextImpl::has(const std::string& key) const {
    return find(key) != nullptr;
}

bool ContextImpl::has(const std::string& key, ContextScope scope) const {
    const ContextData* store = existing(scope);
    return store && store->contains(key);
}

const boost::any* ContextImpl::find(const std::string& key) const {
    for (const auto* slot : {&localData, &requestData, &sessionData, &sharedSessionData, &processData})
        if (*slot)
            if (const boost::any* value = (*slot)->find(key))
                return value;
    return nullptr;
}

ContextData* ContextImpl::existing(ContextScope scope) const noexcept {
    switch (scope) {
    case ContextScope::Process:
        return processData.get();
    case ContextScope::SharedSession:
        return sharedSessionData.get();
    case ContextScope::Session:
        return sessionData.get();
    case ContextScope::Request:
        return requestData.get();
    case ContextScope::Local:
        return localData.get();
    }
    return nullptr;
}

Reply ContextImpl::handle(std::unique_ptr<Message>&& message, Address&& address) {
    if (const std::shared_ptr<Connector> connector = weakConnector.lock())
        return connector->handle(std::move(message), std::move(address), newLocal());
    return makeExceptionalFuture<std::unique_ptr<Message>>(std::runtime_error("Connector instance went away!"));
}

std::shared_ptr<ContextData> ContextImpl::getProcess() {
    return storeIn(processData);
}

std::shared_ptr<ContextData> ContextImpl::getSharedSession() {
    return storeIn(sharedSessionData);
}

std::shared_ptr<ContextData> ContextImpl::getSession() {
    return storeIn(sessionData);
}

std::shared_ptr<ContextData> ContextImpl::getRequest() {
    return storeIn(requestData);
}

std::shared_ptr<ContextData> ContextImpl::getLocal() {
    return storeIn(localData);
}

} // namespace connector
