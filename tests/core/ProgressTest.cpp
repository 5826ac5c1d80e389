#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

namespace connector::test {
namespace {

using std::chrono::duration;
using Milliseconds = duration<double, std::milli>;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double patience = 10; // everything is that much slower
#else
constexpr double patience = 1;
#endif

class Times {
public:
    void measure(const std::function<void()>& operation) {
        const auto begin = std::chrono::steady_clock::now();
        operation();
        times.push_back(Milliseconds(std::chrono::steady_clock::now() - begin).count());
    }

    bool within(const char* name, double percentileLimit, double worstLimit) {
        std::sort(times.begin(), times.end());
        const double percentile = times[times.size() * 999 / 1000];
        std::cout << name << ": " << times.size() << " times, median " << times[times.size() / 2] << " ms, 99.9 % "
                  << percentile << " ms, worst " << times.back() << " ms\n";
        return percentile <= percentileLimit * patience && times.back() <= worstLimit * patience;
    }

private:
    std::vector<double> times;
};

/// Four threads that route without a pause, as long as it lives.
class Traffic {
public:
    Traffic(Connector& connector, const char* address) {
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([this, &connector, address] {
                while (!done) {
                    send(connector, address);
                    ++routed;
                }
            });
    }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;
    ~Traffic() {
        done = true;
        for (std::thread& thread : threads)
            thread.join();
    }

    std::atomic<long> routed{0};

private:
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
};

// What else the machine does can only add to the times.
bool inOneOfThreeTries(const std::function<bool()>& attempt) {
    for (int tries = 0; tries < 3; ++tries)
        if (attempt())
            return true;
    return false;
}

bool progresses(int count, double percentileLimit, double worstLimit) {
    const auto connector = std::make_shared<ConnectorImpl2>();
    Times adding;
    Times removing;
    Times replacing;
    Times making;
    {
        const Traffic traffic(*connector, "nobody/home");
        for (int i = 0; i < count; ++i) {
            adding.measure([&] { connector->addServiceProvider("s", provider()); });
            removing.measure([&] { connector->removeServiceProvider("s"); });
            replacing.measure([&] { connector->setProcessContext(nullptr); });
            making.measure([&] { connector->newContext(); });
        }
    }
    bool all = true;
    for (auto& [name, times] : {std::pair<const char*, Times&>{"addServiceProvider", adding},
                                {"removeServiceProvider", removing},
                                {"setProcessContext", replacing},
                                {"the first newContext", making}})
        all = times.within(name, percentileLimit, worstLimit) && all;
    return all;
}

TEST(Progress, OfRegistrationUnderConstantRouting) {
    LogCapture silence(0);
    EXPECT_TRUE(inOneOfThreeTries([] { return progresses(rounds(1500), 10, 100); }));
}

// The line about a message that was not delivered is written under the shared lock.
TEST(Progress, OfRegistrationUnderConstantRoutingWithASlowSink) {
    LogCapture slow(0x200,
                    [](const LogCapture::Record&) { std::this_thread::sleep_for(std::chrono::microseconds(200)); });
    EXPECT_TRUE(inOneOfThreeTries([] { return progresses(rounds(400), 30, 200); }));
}

// Two threads that register without a pause leave room for messages between any two of their turns.
TEST(Progress, OfRoutingUnderConstantRegistration) {
    LogCapture silence(0);
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("a", provider());
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (const char* name : {"x", "y"})
        writers.emplace_back([&, name] {
            while (!done) {
                connector->addServiceProvider(name, provider());
                connector->removeServiceProvider(name);
            }
        });
    // Locked out, one would take until the writers stop.
    EXPECT_TRUE(inOneOfThreeTries([&] {
        Times routing;
        for (int i = 0; i < rounds(3000); ++i)
            routing.measure([&] { EXPECT_EQ(outcome(send(*connector, "a")), "hello@"); });
        return routing.within("handle", 50, 500);
    }));
    done = true;
    for (std::thread& writer : writers)
        writer.join();
}

} // namespace
} // namespace connector::test
