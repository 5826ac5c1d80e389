#include <connector/context/ContextImpl.h>

#include <array>
#include <cassert>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace connector {
namespace {

// A value that is none of the five gives an index that no array of five has.
constexpr std::size_t indexOf(ContextScope scope) noexcept {
    return static_cast<std::size_t>(scope);
}

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
    assert(innermostShared <= ContextScope::Session);
    auto child = std::make_shared<ContextImpl>(weakConnector);
    child->processData = getProcess();
    if (innermostShared >= ContextScope::SharedSession)
        child->sharedSessionData = getSharedSession();
    if (innermostShared >= ContextScope::Session)
        child->sessionData = getSession();
    return child;
}

void ContextImpl::set(const std::string& key, boost::any value, ContextScope scope) {
    constexpr std::array accessors{&ContextImpl::getProcess, &ContextImpl::getSharedSession, &ContextImpl::getSession,
                                   &ContextImpl::getRequest, &ContextImpl::getLocal};
    if (indexOf(scope) >= accessors.size())
        return;
    const std::shared_ptr<ContextData> store = (this->*accessors[indexOf(scope)])();
    assert(store);
    store->set(key, std::move(value));
}

boost::any ContextImpl::erase(const std::string& key) {
    for (const auto store : stores())
        if (const std::shared_ptr<ContextData>& data = this->*store)
            data->erase(key);
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
    constexpr auto all = stores();
    for (auto store = all.rbegin(); store != all.rend(); ++store)
        if (const std::shared_ptr<ContextData>& data = this->**store)
            if (const boost::any* value = data->find(key))
                return value;
    return nullptr;
}

ContextData* ContextImpl::existing(ContextScope scope) const noexcept {
    constexpr auto all = stores();
    return indexOf(scope) < all.size() ? (this->*all[indexOf(scope)]).get() : nullptr;
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
