#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/core/ConnectorImpl2.h>
#include <connector/diagnostics/internal/FrameworkLogger.h>

#include <gmock/gmock.h>

#include <iomanip>
#include <stdexcept>

namespace connector::test {
namespace {

using Logger = fl::log::basic_diagnostic_logger<char>;
using testing::ElementsAre;

/// Restores what a test does to Boost.Log's core.
class Logging : public testing::Test {
protected:
    ~Logging() override {
        core->set_logging_enabled(true);
        core->reset_filter();
    }

    std::string piece() {
        ++evaluated;
        return pieceThrows ? throw std::runtime_error("boom") : "piece";
    }

    const boost::log::core_ptr core = boost::log::core::get();
    int evaluated = 0;
    bool pieceThrows = false;
};

TEST_F(Logging, EvaluatesItsPiecesOnlyForARecordThatIsWritten) {
    const struct {
        const char* name;
        std::function<void()> prepare;
        int evaluated;
        std::size_t written;
    } cases[] = {
        {"wanted", [] {}, 1, 1},
        {"a piece throws", [this] { pieceThrows = true; }, 1, 0},
        {"masked out", [] { fl::log::setEnabledSeverityMask(LogCapture::channel, 0x208); }, 0, 0},
        {"disabled", [this] { core->set_logging_enabled(false); }, 0, 0},
        {"filtered",
         [this] {
             core->set_logging_enabled(true);
             core->set_filter(
                 [](const auto& values) { return values["Severity"].template extract<std::uint32_t>() != 0x100u; });
         },
         0, 0},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        LogCapture log(0x108);
        expected.prepare();
        evaluated = 0;
        const std::string got = told([this] { FRAMEWORK_LOG(warning) << "a " << piece(); });
        EXPECT_EQ(got, expected.evaluated > static_cast<int>(expected.written) ? "runtime_error: boom" : "done");
        EXPECT_EQ(evaluated, expected.evaluated);
        EXPECT_EQ(log.records.size(), expected.written);
        pieceThrows = false;
    }
}

TEST_F(Logging, IsAStatementThatEvaluatesItsLoggerAndSeverityOnce) {
    LogCapture log(0x300);
    Logger logger(LogCapture::channel);
    int loggers = 0, severities = 0;
    const auto ask = [&]() -> auto& {
        return ++loggers, logger;
    };
    const auto severity = [&](std::uint32_t value) { return ++severities, value; };
    for (const bool wanted : {true, false})
        if (wanted)
            FL_LOG(ask(), severity(0x100)) << "outer " << [&] {
                FL_LOG(ask(), severity(0x200)) << "inner " << std::hex << 255;
                return 1;
            }();
        else
            FL_LOG(ask(), severity(0x8)) << piece();
    EXPECT_EQ(loggers, 3);
    EXPECT_EQ(severities, 3);
    EXPECT_EQ(evaluated, 0);
    EXPECT_THAT(log.records, ElementsAre(LogCapture::Record{0x200, LogCapture::channel, "inner ff"},
                                         LogCapture::Record{0x100, LogCapture::channel, "outer 1"}));
}

// A sink must not log what it causes itself, or it has no end.
TEST_F(Logging, LetsASinkSendItsRecordsThroughTheConnector) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    std::vector<std::string> collected;
    connector->addServiceProvider("collect", provider([&](MessagePtr&& message, auto&&...) {
                                      return ready(collected.emplace_back(text(message)));
                                  }));
    const LogCapture log(0x308, [&](const auto& record) { outcome(send(*connector, "collect", record.text)); });
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
    fl::log::setEnabledSeverityMask("test::mask", 0x8);
    EXPECT_EQ(fl::log::enabledSeverityMask("test::mask"), 0x8u);
    const Logger first("test::mask");
    EXPECT_TRUE(first.enabled(0x8));
    fl::log::setEnabledSeverityMask("test::mask", 0x200);
    fl::log::setEnabledSeverityMask("test::other", 0x8);
    const Logger second("test::mask");
    EXPECT_TRUE(first.enabled(0x200) && second.enabled(0x200));
    EXPECT_FALSE(first.enabled(0x8) || second.enabled(0x8));

    EXPECT_EQ(fl::log::enabledSeverityMask("test::unheard of"), 0x300u);
    { const Logger gone("test::mask"); }
    fl::log::setEnabledSeverityMask("test::mask", 0x100); // must not reach for the logger that died
    EXPECT_TRUE(second.enabled(0x100));
}

TEST(SeverityMask, MayBeSetInARaceWithNewLoggers) {
    std::atomic<int> wanted{0};
    const auto repeat = [](auto body) {
        return [body](int round) {
            for (std::uint32_t i = 0; i < 50; ++i)
                body("test::race " + std::to_string(round), i % 2 ? 0x8 : 0x200);
        };
    };
    race(rounds(30), {repeat(fl::log::setEnabledSeverityMask), repeat([&](const std::string& channel, std::uint32_t) {
                          wanted += Logger(channel).enabled(0x308);
                      }),
                      repeat([&](const std::string& channel, std::uint32_t) {
                          wanted += fl::log::enabledSeverityMask(channel) != 0;
                      })});
    EXPECT_EQ(wanted, 2 * 50 * rounds(30));
}

} // namespace
} // namespace connector::test
