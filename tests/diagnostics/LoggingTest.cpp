#include "support/LogCapture.h"
#include "support/Rounds.h"

#include <connector/diagnostics/internal/FrameworkLogger.h>

#include <gmock/gmock.h>

#include <atomic>
#include <iomanip>
#include <stdexcept>
#include <thread>

namespace connector::test {
namespace {

/// Restores what a test does to Boost.Log's core.
class Logging : public testing::Test {
protected:
    ~Logging() override {
        core->set_logging_enabled(true);
        core->reset_filter();
    }

    std::string piece() {
        ++evaluated;
        return "piece";
    }

    const boost::log::core_ptr core = boost::log::core::get();
    int evaluated = 0;
};

TEST_F(Logging, EvaluatesItsPiecesOnlyForARecordThatIsWritten) {
    const struct {
        const char* name;
        std::function<void()> prepare;
        int written;
    } cases[] = {
        {"wanted", [] {}, 1},
        {"masked out", [] { fl::log::setEnabledSeverityMask(LogCapture::channel, 0x208); }, 0},
        {"disabled", [this] { core->set_logging_enabled(false); }, 0},
        {"filtered",
         [this] {
             core->set_logging_enabled(true);
             core->set_filter([](const boost::log::attribute_value_set& values) {
                 return boost::log::extract_or_default<std::uint32_t>("Severity", values, 0u) != 0x100;
             });
         },
         0},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        LogCapture log(0x108);
        expected.prepare();
        evaluated = 0;
        FRAMEWORK_LOG(warning) << "a " << piece();
        EXPECT_EQ(evaluated, expected.written);
        EXPECT_EQ(log.records.size(), static_cast<std::size_t>(expected.written));
    }
}

TEST_F(Logging, WritesNothingWhenAPieceThrows) {
    LogCapture log(0x8);
    EXPECT_THROW(
        FRAMEWORK_LOG(chatter) << "a " << [this]() -> std::string { throw std::runtime_error(piece()); }(),
        std::runtime_error);
    EXPECT_EQ(evaluated, 1);
    EXPECT_TRUE(log.records.empty());
}

TEST_F(Logging, IsAStatementThatEvaluatesItsLoggerAndSeverityOnce) {
    LogCapture log(0x300);
    fl::log::basic_diagnostic_logger<char> logger(LogCapture::channel);
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
    EXPECT_THAT(log.records, testing::ElementsAre(LogCapture::Record{0x200, LogCapture::channel, "inner ff"},
                                                  LogCapture::Record{0x100, LogCapture::channel, "outer 1"}));
}

// As at the end of a process: its threads may still log through a logger in static storage.
TEST_F(Logging, IsOverWithItsLogger) {
    std::atomic<bool> writing{false}, destroyed{false}, written{false};
    LogCapture log(0x300, [&](const LogCapture::Record&) {
        writing = true;
        while (!destroyed)
            std::this_thread::yield();
        for (volatile int i = 0; i < 10'000'000;)
            i = i + 1;
        written = true;
    });
    using Logger = fl::log::basic_diagnostic_logger<char>;
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
    fl::log::basic_diagnostic_logger<char> first("test::mask");
    EXPECT_TRUE(first.enabled(0x8));
    fl::log::setEnabledSeverityMask("test::mask", 0x200);
    fl::log::setEnabledSeverityMask("test::other", 0x8);
    const fl::log::basic_diagnostic_logger<char> second("test::mask");
    EXPECT_TRUE(first.enabled(0x200) && second.enabled(0x200));
    EXPECT_FALSE(first.enabled(0x8) || second.enabled(0x8));

    EXPECT_EQ(fl::log::enabledSeverityMask("test::unheard of"), 0x300u);
    { const fl::log::basic_diagnostic_logger<char> gone("test::mask"); }
    fl::log::setEnabledSeverityMask("test::mask", 0x100); // must not reach for the logger that died
    EXPECT_TRUE(second.enabled(0x100));
}

TEST(SeverityMask, MayBeSetInARaceWithNewLoggers) {
    std::atomic<int> wanted{0};
    race(rounds(30),
         {[](int round) {
              for (std::uint32_t i = 0; i < 50; ++i)
                  fl::log::setEnabledSeverityMask("test::race " + std::to_string(round), i % 2 ? 0x8 : 0x200);
          },
          [&](int round) {
              for (int i = 0; i < 50; ++i) {
                  const fl::log::basic_diagnostic_logger<char> logger("test::race " + std::to_string(round));
                  wanted += logger.enabled(0x308) ? 1 : 0;
              }
          },
          [&](int round) {
              for (int i = 0; i < 50; ++i)
                  wanted += fl::log::enabledSeverityMask("test::race " + std::to_string(round)) != 0 ? 1 : 0;
          }});
    EXPECT_EQ(wanted, 2 * 50 * rounds(30));
}

} // namespace
} // namespace connector::test
