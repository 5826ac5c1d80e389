#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <stdexcept>

namespace connector::test {
namespace {

using boost::any_cast;

constexpr ContextScope scopes[] = {ContextScope::Process, ContextScope::SharedSession, ContextScope::Session,
                                   ContextScope::Request, ContextScope::Local};
constexpr auto noScope = static_cast<ContextScope>(5);

std::shared_ptr<ContextImpl> newContextImpl() {
    return std::make_shared<ContextImpl>();
}

std::string errorOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "(none)";
}

TEST(ContextDerivation, SharesTheOuterStoresOnly) {
    const struct {
        const char* name;
        std::shared_ptr<Context> (Context::*derive)();
        int shared; // how many scopes, from Process on
    } cases[] = {
        {"newSharedSession", &Context::newSharedSession, 1},
        {"newSession", &Context::newSession, 2},
        {"newRequest", &Context::newRequest, 3},
        {"newLocal", &Context::newLocal, 5},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        for (const bool childWrites : {false, true}) {
            const std::shared_ptr<Context> parent = newContextImpl();
            const std::shared_ptr<Context> child = ((*parent).*expected.derive)();
            EXPECT_EQ(child == parent, expected.shared == 5);
            for (const ContextScope scope : scopes) {
                // Nothing was in any store when they were parted.
                (childWrites ? child : parent)->set("key", 1, scope);
                EXPECT_EQ((childWrites ? parent : child)->has("key", scope), static_cast<int>(scope) < expected.shared)
                    << static_cast<int>(scope);
            }
        }
    }
}

TEST(ContextDerivation, OfSiblingsSharesTheProcessStoreAlone) {
    const auto parent = newContextImpl();
    const auto first = parent->newSharedSession();
    const auto second = parent->newSharedSession();
    for (const ContextScope scope : scopes)
        first->set(std::to_string(static_cast<int>(scope)), 1, scope);
    EXPECT_TRUE(second->has("0"));
    for (const char* key : {"1", "2", "3", "4"})
        EXPECT_FALSE(second->has(key)) << key;
}

TEST(ContextValues, AreSearchedFromTheInnermostScopeOutwards) {
    const auto context = newContextImpl();
    for (const ContextScope scope : scopes)
        context->set("key", static_cast<int>(scope), scope);
    for (int scope = 4; scope >= 0; --scope) {
        EXPECT_EQ(any_cast<int>(context->get("key")), scope);
        EXPECT_EQ(any_cast<int>(context->get("key", scopes[scope])), scope);
        EXPECT_EQ(any_cast<std::size_t>(context->erase("key", scopes[scope])), 1u);
        EXPECT_EQ(any_cast<std::size_t>(context->erase("key", scopes[scope])), 0u);
        EXPECT_TRUE(context->get("key", scopes[scope]).empty());
    }
    EXPECT_FALSE(context->has("key"));
}

TEST(ContextValues, ThatAreNotThereMakeNoStore) {
    const auto context = newContextImpl();
    context->set("key", 1, noScope);
    EXPECT_FALSE(context->has("key"));
    EXPECT_EQ(errorOf([&] { context->get("key"); }), "No value for the specified key was found.");
    EXPECT_TRUE(context->erase("key").empty());
    for (const ContextScope scope : {scopes[0], scopes[1], scopes[2], scopes[3], scopes[4], noScope}) {
        EXPECT_FALSE(context->has("key", scope));
        EXPECT_TRUE(context->get("key", scope).empty());
        EXPECT_TRUE(context->erase("key", scope).empty()); // a store would give a count
    }
}

TEST(ContextValues, AreCopiesAndMayBeEmpty) {
    const auto context = newContextImpl();
    context->set("empty", boost::any(), ContextScope::Session);
    EXPECT_TRUE(context->has("empty"));
    EXPECT_TRUE(context->get("empty").empty());

    boost::any original = 1;
    context->set("key", original, ContextScope::Request);
    any_cast<int&>(original) = 2;
    boost::any got = context->get("key");
    any_cast<int&>(got) = 3;
    EXPECT_EQ(any_cast<int>(context->get("key")), 1);
}

TEST(ContextValues, AreErasedFromEveryScopeThatTheContextSees) {
    const auto parent = newContextImpl();
    const auto child = parent->newRequest();
    for (const ContextScope scope : scopes)
        child->set("key", 1, scope);
    parent->set("key", 1, ContextScope::Local);
    EXPECT_TRUE(child->erase("key").empty());
    EXPECT_FALSE(child->has("key"));
    for (const ContextScope scope : scopes)
        EXPECT_EQ(parent->has("key", scope), scope == ContextScope::Local);
}

/// Supplies the session store itself, and counts what is asked for.
class OwnStores : public ContextImpl {
public:
    const std::shared_ptr<ContextData> session = std::make_shared<ContextData>();
    int locals = 0;
    std::shared_ptr<Context> local = newContextImpl();

    std::shared_ptr<Context> newLocal() override { return local; }

protected:
    std::shared_ptr<ContextData> getSession() override { return session; }
    std::shared_ptr<ContextData> getLocal() override {
        ++locals;
        return ContextImpl::getLocal();
    }
};

TEST(ContextDerivation, AsksADerivedClassForItsStores) {
    const auto context = std::make_shared<OwnStores>();
    context->set("key", 1, ContextScope::Session);
    context->set("key", 1, ContextScope::Local);
    EXPECT_TRUE(context->session->contains("key"));
    EXPECT_EQ(context->locals, 1);
    const auto request = context->newRequest();
    request->set("from the child", 2, ContextScope::Session);
    EXPECT_TRUE(context->session->contains("from the child"));
}

TEST(ContextRouting, CarriesWhatNewLocalGives) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    std::shared_ptr<Context> carried;
    connector->addServiceProvider("p",
                                  provider([&](MessagePtr&&, Address&& address, std::shared_ptr<Context>&& context) {
                                      carried = std::move(context);
                                      return ready(address.toString());
                                  }));
    const auto context = connector->newContext()->newRequest();
    EXPECT_EQ(outcome(context->handle(message("x"), Address("p/rest"))), "rest");
    EXPECT_EQ(carried, context);

    // A derived class whose newLocal() gives another context has that one sent along.
    class Linked : public ContextImpl {
    public:
        using ContextImpl::ContextImpl;
        std::shared_ptr<Context> newLocal() override { return newRequest(); }
    };
    const auto linked = std::make_shared<Linked>(connector);
    EXPECT_EQ(outcome(linked->handle(message("x"), Address("p"))), "");
    EXPECT_NE(carried, linked);
}

TEST(ContextRouting, WithoutAConnectorLeavesTheMessageWithItsSender) {
    auto connector = std::make_shared<ConnectorImpl2>();
    const auto orphan = connector->newContext();
    connector.reset();
    orphan->set("key", 1, ContextScope::Session);
    for (const std::shared_ptr<Context>& context :
         {orphan, orphan->newRequest(), std::shared_ptr<Context>(newContextImpl())}) {
        MessagePtr sent = message("mine");
        Address address("p/x");
        EXPECT_EQ(outcome(context->handle(std::move(sent), std::move(address))),
                  "runtime_error: Connector instance went away!");
        EXPECT_EQ(text(sent), "mine");        // NOLINT(bugprone-use-after-move): what is promised of it
        EXPECT_EQ(address.toString(), "p/x"); // NOLINT(bugprone-use-after-move)
    }
    EXPECT_TRUE(orphan->newRequest()->has("key"));

    ContextImpl unowned(std::make_shared<ConnectorImpl2>());
    EXPECT_THROW(unowned.newLocal(), std::bad_weak_ptr);
}

TEST(ProcessContext, IsSharedByAllContextsOfAConnectorUntilReplaced) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    const auto early = connector->newContext();
    early->set("key", 1, ContextScope::Process);
    early->set("session", 1, ContextScope::SharedSession);
    EXPECT_TRUE(connector->newContext()->has("key"));
    EXPECT_FALSE(connector->newContext()->has("session"));

    const auto own = newContextImpl();
    const auto previous = connector->setProcessContext(own);
    EXPECT_TRUE(previous->has("key"));
    EXPECT_FALSE(connector->newContext()->has("key"));
    EXPECT_EQ(connector->setProcessContext(nullptr), own);
    connector->newContext()->set("key", 2, ContextScope::Process);
    EXPECT_EQ(any_cast<int>(connector->newContext()->get("key")), 2);
    EXPECT_EQ(any_cast<int>(early->get("key")), 1);
}

TEST(ProcessContext, CannotBeMadeForAConnectorThatNobodyOwns) {
    ConnectorImpl2 connector;
    EXPECT_THROW(connector.newContext(), std::bad_weak_ptr);
    EXPECT_FALSE(connector.setProcessContext(newContextImpl())); // none was left behind, nor the lock held
    EXPECT_TRUE(connector.newContext());
}

TEST(ProcessContext, IsMadeOnceByManyThreads) {
    std::shared_ptr<ConnectorImpl2> connector;
    std::shared_ptr<Context> made[3];
    const auto make = [&](std::size_t which) { return [&, which](int) { made[which] = connector->newContext(); }; };
    const auto fresh = [&](int) {
        if (connector) {
            made[0]->set("key", 1, ContextScope::Process);
            EXPECT_TRUE(made[1]->has("key") && made[2]->has("key"));
        }
        connector = std::make_shared<ConnectorImpl2>();
        connector->addServiceProvider("p", provider());
    };
    race(rounds(100), {make(0), make(1), make(2), [&](int) { EXPECT_EQ(outcome(send(*connector, "p")), "hello@"); }},
         fresh);
    fresh(0);
}

} // namespace
} // namespace connector::test
