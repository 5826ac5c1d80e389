#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <stdexcept>

namespace connector::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string errorOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "(none)";
}

TEST(Registry, RefusesATakenKeyAndKeepsTheFirst) {
    const struct {
        const char *first, *second;
    } cases[] = {{"a", "a"}, {"a", "?a"}, {"?opt", "opt"}, {"aB", "b!"}, {"", "?"}, {"\xFF\x80", "?\xFF\x80"}};
    for (const auto& names : cases) {
        SCOPED_TRACE(std::string(names.first) + " " + names.second);
        const auto connector = std::make_shared<ConnectorImpl2>();
        const auto first = provider();
        const auto second = provider();
        LogCapture log(0x200);
        connector->addServiceProvider(names.first, first);
        const std::string text =
            std::string("Service with name ") + names.second + " already registered (or hash collision).";
        EXPECT_EQ(errorOf([&] { connector->addServiceProvider(names.second, second); }), text);
        EXPECT_THAT(log.records, ElementsAre(LogCapture::Record{0x200, "connector::framework", text}));
        EXPECT_THAT(connector->listServiceProviders(), ElementsAre(names.first));
        EXPECT_FALSE(second->running);
        EXPECT_EQ(second.use_count(), 1);

        connector->removeServiceProvider(names.second); // any name of the key will do
        EXPECT_THAT(connector->listServiceProviders(), IsEmpty());
        EXPECT_EQ(first->stops, 1);
        EXPECT_EQ(first.use_count(), 1);
    }
}

TEST(Registry, RefusesAnEmptyProviderBeforeItLooksAtTheName) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    LogCapture log(0x308);
    connector->addServiceProvider("a", provider());
    EXPECT_THROW(connector->addServiceProvider("a", nullptr), std::invalid_argument);
    EXPECT_EQ(errorOf([&] { connector->addServiceProvider("b", nullptr); }), "Service provider can't be empty.");
    EXPECT_THAT(connector->listServiceProviders(), ElementsAre("a"));
    EXPECT_THAT(log.records.back().text, "Adding service provider: b");
}

TEST(Registry, LogsItsChangesUnderTheNamesGiven) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    LogCapture log(0x308);
    connector->addServiceProvider("?opt", provider());
    connector->removeServiceProvider("opt");
    connector->removeServiceProvider("x");
    EXPECT_THAT(log.records,
                ElementsAre(LogCapture::Record{0x8, "connector::framework", "Adding service provider: ?opt"},
                            LogCapture::Record{0x8, "connector::framework", "Removed service provider: opt"},
                            LogCapture::Record{0x8, "connector::framework", "Removed service provider: x"}));
}

} // namespace
} // namespace connector::test
