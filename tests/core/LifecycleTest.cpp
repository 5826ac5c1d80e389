#include "support/Messages.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <stdexcept>

namespace connector::test {
namespace {

static_assert(std::is_convertible_v<std::string, ConnectorImpl2>);
static_assert(std::is_convertible_v<std::weak_ptr<Connector>, ContextImpl>);

struct Calls {
    int starts, stops;
};
bool operator==(const Calls& left, const Calls& right) {
    return left.starts == right.starts && left.stops == right.stops;
}

Calls calls(const std::shared_ptr<TestProvider>& provider) {
    return {provider->starts, provider->stops};
}

TEST(Lifecycle, OfANewConnector) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    EXPECT_EQ(connector->getName(), "default");
    EXPECT_EQ(ConnectorImpl2("switchboard").getName(), "switchboard");
    EXPECT_EQ(connector->getPtr(), connector);
    EXPECT_THROW(ConnectorImpl2().getPtr(), std::bad_weak_ptr);
}

// The provider's own flag decides whether it is called, whatever was done to the connector before.
TEST(Lifecycle, CallsAProviderOnlyWhenItsFlagChanges) {
    const auto p = provider();
    {
        const auto connector = std::make_shared<ConnectorImpl2>();
        connector->addServiceProvider("a", p); // a new connector is started
        EXPECT_EQ(calls(p), (Calls{1, 0}));
        connector->addServiceProvider("b", p);
        connector->start();
        connector->start();
        EXPECT_EQ(calls(p), (Calls{1, 0}));
        connector->stop();
        connector->stop();
        EXPECT_EQ(calls(p), (Calls{1, 1}));
        connector->start();
        EXPECT_EQ(calls(p), (Calls{2, 1}));
        connector->removeServiceProvider("a");
        connector->removeServiceProvider("b");
        EXPECT_EQ(calls(p), (Calls{2, 2}));

        connector->stop();
        connector->addServiceProvider("stopped already", p);
        EXPECT_EQ(calls(p), (Calls{2, 2}));
        const auto running = provider();
        running->running = true;
        connector->addServiceProvider("running", running);
        EXPECT_EQ(calls(running), (Calls{0, 1}));
        connector->start();
    }
    EXPECT_EQ(calls(p), (Calls{3, 2})); // dying stops nobody
    EXPECT_TRUE(p->running);
}

TEST(Lifecycle, PassesOnWhatAProviderThrowsAndStaysUsable) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    const auto p = provider();
    p->onStart = p->onStop = [] { throw std::runtime_error("not now"); };

    EXPECT_THROW(connector->addServiceProvider("p", p), std::runtime_error);
    EXPECT_TRUE(p->running);
    EXPECT_EQ(outcome(send(*connector, "p/x")), "hello@x");

    EXPECT_THROW(connector->removeServiceProvider("p"), std::runtime_error);
    EXPECT_FALSE(p->running);
    EXPECT_EQ(outcome(send(*connector, "p/x")), "hello@x"); // still registered

    EXPECT_THROW(connector->start(), std::runtime_error);
    EXPECT_THROW(connector->stop(), std::runtime_error);
    EXPECT_THROW(connector->start(), std::runtime_error); // and the connector is still stopped:
    const auto late = provider();
    connector->addServiceProvider("late", late);
    EXPECT_EQ(calls(late), (Calls{0, 0}));

    p->onStop = nullptr;
    connector->removeServiceProvider("p");
    EXPECT_EQ(calls(p), (Calls{3, 3})); // it counted as started
    EXPECT_THAT(connector->listServiceProviders(), testing::ElementsAre("late"));
}

} // namespace
} // namespace connector::test
