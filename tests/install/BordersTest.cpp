// Linked against the shared libraries, as a host is: what is thrown, caught and cast crosses their borders.

#include "support/Messages.h"

#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>
#include <fl/except/IInternalException.h>
#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/UnexpectedMessage.h>

#include <boost/exception/exception.hpp>
#include <boost/smart_ptr/make_shared.hpp>
#include <gtest/gtest.h>

#include <dlfcn.h>

namespace connector::test {
namespace {

namespace exchange = foundation::msg_svc::exchange;

struct HostError : std::logic_error {
    using std::logic_error::logic_error;
};

TEST(Borders, LetExceptionsAndCastsThrough) {
    const std::shared_ptr<Connector> connectors[] = {std::make_shared<ConnectorImpl2>(),
                                                     std::make_shared<ConnectorImpl>()};
    for (const auto& connector : connectors) {
        const std::shared_ptr<Context> context = connector->newContext();
        EXPECT_TRUE(dynamic_cast<ContextImpl*>(context.get()));
        EXPECT_TRUE(dynamic_cast<std::enable_shared_from_this<Context>*>(context.get()));
        EXPECT_NE(dynamic_cast<ConnectorImpl2*>(connector.get()) != nullptr,
                  dynamic_cast<ConnectorImpl*>(connector.get()) != nullptr);
        context->set("key", std::string("value"), ContextScope::Process);
        EXPECT_EQ(boost::any_cast<std::string>(connector->newContext()->get("key")), "value");
        EXPECT_THROW(context->get("none"), std::invalid_argument);
        EXPECT_THROW(connector->addServiceProvider("p", nullptr), std::invalid_argument);
    }
    EXPECT_THROW(ConnectorImpl2().newContext(), std::bad_weak_ptr);

    ConnectorImpl2 connector;
    connector.addServiceProvider("p", thrower(HostError("host")));
    EXPECT_THROW(send(connector, "p").get(), HostError);
}

TEST(Borders, LetRepliesOutliveThePluginThatMadeThem) {
    std::vector<Reply> replies;
    void* const plugin = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_TRUE(plugin) << dlerror();
    reinterpret_cast<void (*)(std::vector<Reply>&)>(dlsym(plugin, "answer"))(replies);
    dlclose(plugin);
    ASSERT_FALSE(dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD));
    EXPECT_FALSE(replies.at(0).get());
    EXPECT_THROW(replies.at(1).get(), std::runtime_error);
    EXPECT_THROW(replies.at(2).get(), std::runtime_error);
}

TEST(Borders, LetTheExchangesExceptionBeCaughtAsEachOfItsBases) {
    ConnectorImpl connector;
    connector.addServiceProvider("borders", provider());
    const auto submit = [] {
        const auto api = exchange::ExchangeApi::instance();
        api->submitWithReply(boost::make_shared<exchange::Message>(),
                             exchange::Address(api->getExchangeName(), "borders"))
            .get();
    };
    EXPECT_THROW(submit(), exchange::UnexpectedMessage);
    EXPECT_THROW(submit(), std::exception);
    EXPECT_THROW(submit(), boost::exception);
    EXPECT_THROW(submit(), fl::except::IException);
    EXPECT_THROW(submit(), fl::except::IInternalException);
    connector.removeServiceProvider("borders");
}

} // namespace
} // namespace connector::test
