#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

namespace connector::test {
namespace {

using boost::any_cast;

constexpr ContextScope scopes[] = {ContextScope::Process, ContextScope::SharedSession, ContextScope::Session,
                                   ContextScope::Request, ContextScope::Local};
constexpr auto noScope = static_cast<ContextScope>(5);

std::shared_ptr<ContextImpl> newContextImpl() {
    return std::make_shared<ContextImpl>();
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
    for (const auto& expected : cases)
        for (const ContextScope scope : scopes) {
            SCOPED_TRACE(expected.name + std::to_string(static_cast<int>(scope)));
            const bool shared = static_cast<int>(scope) < expected.shared;
            const std::shared_ptr<Context> parent = newContextImpl();
            const std::shared_ptr<Context> child = ((*parent).*expected.derive)();
            const std::shared_ptr<Context> sibling = ((*parent).*expected.derive)();
            EXPECT_EQ(child == parent, expected.shared == 5);
            child->set("child", 1, scope); // nothing was in any store when they were parted
            parent->set("parent", 1, scope);
            EXPECT_EQ(parent->has("child", scope), shared);
            EXPECT_EQ(sibling->has("child"), shared);
            EXPECT_EQ(child->has("parent", scope), shared);
            EXPECT_TRUE(child->erase("child").empty()); // wherever it is
            EXPECT_FALSE(child->has("child") || parent->has("child"));
            EXPECT_TRUE(child->erase("parent").empty());
            EXPECT_EQ(parent->has("parent"), !shared);
        }
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

TEST(ContextValues, ThatAreMissingMakeNoStore) {
    const auto context = newContextImpl();
    context->set("key", 1, noScope);
    EXPECT_FALSE(context->has("key"));
    EXPECT_EQ(told([&] { context->get("key"); }), "invalid_argument: No value for the specified key was found.");
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
    context->set("key", 4, ContextScope::Request);
    EXPECT_EQ(any_cast<int>(context->get("key")), 4);
}

// What a derived class overrides is what set() and the derivations use, for each scope.
TEST(ContextDerivation, AsksADerivedClassForItsStores) {
    struct OwnStores : ContextImpl {
        std::shared_ptr<ContextData> stores[5];
        std::shared_ptr<ContextData> getProcess() override { return stores[0]; }
        std::shared_ptr<ContextData> getSharedSession() override { return stores[1]; }
        std::shared_ptr<ContextData> getSession() override { return stores[2]; }
        std::shared_ptr<ContextData> getRequest() override { return stores[3]; }
        std::shared_ptr<ContextData> getLocal() override { return stores[4]; }
    };
    const auto context = std::make_shared<OwnStores>();
    for (auto& store : context->stores)
        store = std::make_shared<ContextData>();
    for (int i = 0; i < 5; ++i) {
        context->set("own", i, scopes[i]);
        EXPECT_EQ(any_cast<int>(context->stores[i]->get("own")), i);
        context->newRequest()->set("child", i, scopes[i]);
        EXPECT_EQ(context->stores[i]->contains("child"), i < 3);
        EXPECT_FALSE(context->has("own", scopes[i])); // reading looks at the stores of the base class
    }
}

TEST(ContextRouting, CarriesWhatNewLocalGives) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    std::shared_ptr<Context> carried;
    connector->addServiceProvider("p", provider([&](auto&&, Address&& address, auto&& context) {
                                      carried = std::move(context);
                                      return ready(address.toString());
                                  }));
    const auto context = connector->newContext()->newRequest();
    EXPECT_EQ(outcome(context->handle(message("x"), Address("p/rest"))), "rest");
    EXPECT_EQ(carried, context);
    struct Linked : ContextImpl {
        using ContextImpl::ContextImpl;
        std::shared_ptr<Context> newLocal() override { return other; }
        const std::shared_ptr<Context> other = newContextImpl();
    };
    const auto linked = std::make_shared<Linked>(connector);
    EXPECT_EQ(outcome(linked->handle(message("x"), Address("p"))), "");
    EXPECT_EQ(carried, linked->other);
}

TEST(ContextRouting, WithoutAConnectorLeavesTheMessageWithItsCaller) {
    auto connector = std::make_shared<ConnectorImpl2>();
    const auto orphan = connector->newContext();
    connector.reset();
    orphan->set("key", 1, ContextScope::Session);
    EXPECT_TRUE(orphan->newRequest()->has("key"));
    for (const std::shared_ptr<Context>& context :
         {orphan, orphan->newRequest(), std::shared_ptr<Context>(newContextImpl())}) {
        MessagePtr sent = message("mine");
        Address address("p/x");
        EXPECT_EQ(outcome(context->handle(std::move(sent), std::move(address))),
                  "runtime_error: Connector instance went away!");
        EXPECT_EQ(text(sent), "mine");        // NOLINT(bugprone-use-after-move): what is promised of it
        EXPECT_EQ(address.toString(), "p/x"); // NOLINT(bugprone-use-after-move)
    }
    EXPECT_THROW(ContextImpl(std::make_shared<ConnectorImpl2>()).newLocal(), std::bad_weak_ptr);
}

TEST(ProcessContexts, AreMadeOnceInARaceOfThreads) {
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
