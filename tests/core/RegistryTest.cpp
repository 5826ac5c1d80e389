#include "support/Allocations.h"
#include "support/LogCapture.h"
#include "support/Messages.h"

#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <map>
#include <random>
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

TEST(Registry, IsUnchangedWhenMemoryRunsOutInARegistration) {
    for (std::size_t successes = 0;; ++successes) {
        const auto connector = std::make_shared<ConnectorImpl2>();
        const auto p = provider();
        const std::string name = "a name that fits no small string";
        bool struck = false;
        try {
            const AllocationFailure failure(successes, false);
            connector->addServiceProvider(name, p);
        } catch (const std::bad_alloc&) {
            struck = true;
        }
        EXPECT_EQ(connector->listServiceProviders().size(), struck ? 0u : 1u);
        EXPECT_EQ(p->starts, struck ? 0 : 1);
        EXPECT_EQ(outcome(send(*connector, name)) == "hello@", !struck);
        if (!struck) {
            EXPECT_GE(successes, 4u); // two tables, an entry each, and the long name at least
            break;
        }
        connector->addServiceProvider(name, p);
        EXPECT_EQ(outcome(send(*connector, name)), "hello@");
    }
}

// Random registrations, removals and messages beside the same on a std::map: the two tables may never drift apart.
TEST(Registry, AgreesWithAModel) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto connector = std::make_shared<ConnectorImpl2>();
    std::map<std::string, std::string> model; // key to the name as registered
    const auto key = [](const std::string& name) { return name.front() == '?' ? name.substr(1) : name; };
    for (int step = 0; step < 3000; ++step) {
        const std::string name = (random() % 2 ? "?s" : "s") + std::to_string(random() % 40);
        switch (random() % 3) {
        case 0:
            EXPECT_EQ(errorOf([&] { connector->addServiceProvider(name, provider()); }) == "(none)",
                      model.emplace(key(name), name).second);
            break;
        case 1:
            connector->removeServiceProvider(name);
            model.erase(key(name));
            break;
        default:
            EXPECT_EQ(outcome(send(*connector, name + "/x")) == "hello@x", model.count(key(name)) == 1);
        }
        std::set<std::string> names;
        for (const auto& entry : model)
            names.insert(entry.second);
        ASSERT_EQ(connector->listServiceProviders(), names);
    }
}

} // namespace
} // namespace connector::test
