#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/core/ConnectorImpl2.h>
#include <connector/diagnostics/internal/FrameworkLogger.h>

#include <gmock/gmock.h>

#include <iomanip>

namespace connector::test {
namespace {

using Logger = fl::log::basic_diagnostic_logger<char>;
using Record = LogCapture::Record;
using testing::ElementsAre;

class Logging : public testing::Test {
protected:
    std::string piece() {
        ++evaluated;
        return pieceThrows ? throw std::runtime_error("boom") : "piece";
    }

    int evaluated = 0;
    bool pieceThrows = false;
};

TEST_F(Logging, EvaluatesItsPiecesOnlyForARecordThatIsWritten) {
    const auto warn = [this](std::uint32_t mask = 0x108) {
        const LogCapture log(mask);
        evaluated = 0;
        const std::string got = told([this] { FRAMEWORK_LOG(warning) << "a " << piece(); });
        return got + (evaluated ? ", evaluated" : "") + (log.records.empty() ? "" : ", written");
    };
    const boost::log::core_ptr core = boost::log::core::get();
    EXPECT_EQ(warn(), "done, evaluated, written");
    EXPECT_EQ(warn(0x208), "done");
    core->set_logging_enabled(false);
    EXPECT_EQ(warn(), "done");
    core->set_logging_enabled(true);
    core->set_filter([](const auto& values) { return values["Severity"].template extract<std::uint32_t>() != 0x100u; });
    EXPECT_EQ(warn(), "done");
    core->reset_filter();
    pieceThrows = true;
    EXPECT_EQ(warn(), "runtime_error: boom, evaluated");
}

TEST_F(Logging, IsAStatementThatEvaluatesItsLoggerAndSeverityOnce) {
    LogCapture log(0x300);
    Logger logger(LogCapture::channel);
    std::string asked;
    const auto ask = [&]() -> auto& {
        return asked += "logger ", logger;
    };
    const auto severity = [&](std::uint32_t value) { return asked += "severity ", value; };
    for (const bool wanted : {true, false})
        if (wanted)
            FL_LOG(ask(), severity(0x100)) << "outer " << [&] {
                FL_LOG(ask(), severity(0x200)) << "inner " << std::hex << 255;
                return 1;
            }();
        else
            FL_LOG(ask(), severity(0x8)) << piece();
    EXPECT_EQ(asked, "logger severity logger severity logger severity ");
    EXPECT_EQ(evaluated, 0);
    EXPECT_THAT(log.records, ElementsAre(Record{0x200, "inner ff"}, Record{0x100, "outer 1"}));
}

// A sink must not log what it causes itself, or it has no end.
TEST_F(Logging, LetsASinkSendItsRecordsThroughTheConnector) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    std::vector<std::string> collected;
    connector->addServiceProvider("echo", echo());
    const LogCapture log(
        0x308, [&](const auto& record) { collected.push_back(outcome(send(*connector, "echo", record.text))); });
    connector->addServiceProvider("p", provider());
    EXPECT_EQ(outcome(send(*connector, "?x/p")), "hello@");
    connector->removeServiceProvider("p");
    EXPECT_THAT(collected, ElementsAre("Adding service provider: p", "Skipping optional service '?x'",
                                       "Removed service provider: p"));
}

// As at the end of a process: its threads may still log through a logger in static storage.
TEST_F(Logging, IsOverWithItsLogger) {
    std::atomic<bool> writing{false}, destroyed{false}, written{false};
    const LogCapture log(0x300, [&](auto&) {
        writing = true;
        while (!destroyed)
            std::this_thread::yield();
        for (volatile int i = 0; i < 10'000'000;)
            i = i + 1;
        written = true;
    });
    alignas(Logger) static unsigned char storage[sizeof(Logger)];
    auto* const logger = new (storage) Logger(LogCapture::channel);
    std::thread other([&] { FL_LOG(*logger, 0x100) << piece(); });
    while (!writing)
        std::this_thread::yield();
    destroyed = true;
    logger->~Logger();
    EXPECT_TRUE(written);
    other.join();
    FL_LOG(*logger, 0x100) << piece();
    EXPECT_EQ(evaluated, 1);
}

TEST(SeverityMask, HoldsForLoggersThatLiveAndThoseToCome) {
    EXPECT_EQ(fl::log::enabledSeverityMask("test::mask"), 0x300u);
    fl::log::setEnabledSeverityMask("test::mask", 0x8);
    EXPECT_EQ(fl::log::enabledSeverityMask("test::mask"), 0x8u);
    const Logger first("test::mask");
    EXPECT_TRUE(first.enabled(0x8));
    fl::log::setEnabledSeverityMask("test::mask", 0x200);
    fl::log::setEnabledSeverityMask("test::other", 0x8);
    const Logger second("test::mask");
    for (const Logger* logger : {&first, &second})
        EXPECT_TRUE(logger->enabled(0x200) && !logger->enabled(0x8));
    { const Logger gone("test::mask"); }
    fl::log::setEnabledSeverityMask("test::mask", 0x100); // must not reach for the logger that was destroyed
    EXPECT_TRUE(second.enabled(0x100));
}

TEST(SeverityMask, MayBeSetInARaceWithNewLoggers) {
    std::atomic<int> wanted{0};
    const auto channel = [](int round) { return "test::race " + std::to_string(round); };
    const auto repeat = [](auto body) {
        return [body](int round) {
            for (int i = 0; i < 50; ++i)
                body(round);
        };
    };
    race(rounds(30), {repeat([&](int round) {
                          fl::log::setEnabledSeverityMask(channel(round), 0x8);
                          fl::log::setEnabledSeverityMask(channel(round), 0x200);
                      }),
                      repeat([&](int round) { wanted += Logger(channel(round)).enabled(0x308); }),
                      repeat([&](int round) { wanted += fl::log::enabledSeverityMask(channel(round)) != 0; })});
    EXPECT_EQ(wanted, 2 * 50 * rounds(30));
}

} // namespace
} // namespace connector::test
