#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <stdexcept>

namespace connector::test {
namespace {

// A sink that throws ends the operation that logged, at the line that it logs; what the operation had done by then
// stays done, and nothing is held or lost.
TEST(SinkFault, LeavesTheOperationThatLoggedAndNothingElse) {
    const struct {
        const char* name;
        std::function<void(Connector&, MessagePtr&)> run;
        std::set<std::string> registered; // afterwards
        bool messageWithSender;
    } cases[] = {
        {"add",
         [](Connector& connector, MessagePtr&) { connector.addServiceProvider("new", provider()); },
         {"p", "throw"},
         true},
        {"add, taken",
         [](Connector& connector, MessagePtr&) { connector.addServiceProvider("p", provider()); },
         {"p", "throw"},
         true},
        {"remove", [](Connector& connector, MessagePtr&) { connector.removeServiceProvider("p"); }, {"throw"}, true},
        {"not delivered",
         [](Connector& connector, MessagePtr& sent) { connector.handle(std::move(sent), Address("nobody"), nullptr); },
         {"p", "throw"},
         true},
        {"skipped",
         [](Connector& connector, MessagePtr& sent) { connector.handle(std::move(sent), Address("?x/p"), nullptr); },
         {"p", "throw"},
         true},
        {"thrown",
         [](Connector& connector, MessagePtr& sent) { connector.handle(std::move(sent), Address("throw"), nullptr); },
         {"p", "throw"},
         false},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        const auto connector = std::make_shared<ConnectorImpl2>();
        connector->addServiceProvider("p", provider());
        connector->addServiceProvider(
            "throw", provider([](MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) -> Reply {
                const MessagePtr taken = std::move(message);
                throw std::runtime_error(test::text(taken));
            }));
        MessagePtr sent = message("mine");
        {
            LogCapture log(0x308, [](const LogCapture::Record&) { throw std::domain_error("disk full"); });
            EXPECT_THROW(expected.run(*connector, sent), std::domain_error);
        }
        LogCapture silence(0);
        EXPECT_EQ(static_cast<bool>(sent), expected.messageWithSender);
        EXPECT_EQ(connector->listServiceProviders(), expected.registered);
        connector->addServiceProvider("afterwards", provider());
        EXPECT_EQ(outcome(send(*connector, "afterwards/x")), "hello@x");
    }
}

// A sink may send what it gets through the connector; it must not log what it causes itself, or it has no end.
TEST(SinkFault, LetsASinkSendItsRecordsThroughTheConnector) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    std::vector<std::string> collected;
    connector->addServiceProvider("collect", provider([&](MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) {
                                      collected.push_back(text(message));
                                      return ready("");
                                  }));
    LogCapture log(0x308, [&](const LogCapture::Record& record) { outcome(send(*connector, "collect", record.text)); });
    connector->addServiceProvider("p", provider());
    EXPECT_EQ(outcome(send(*connector, "?x/p")), "hello@");
    connector->removeServiceProvider("p");
    EXPECT_THAT(collected, testing::ElementsAre("Adding service provider: p", "Skipping optional service '?x'",
                                                "Removed service provider: p"));
}

} // namespace
} // namespace connector::test
