#pragma once

#include <boost/thread/barrier.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace connector::test {

/// How often a race test repeats its race: `usual` times CONNECTOR_TEST_ROUNDS, if that is set. A test whose name lacks
/// "Race" fails here, since that word gives a test the label `race`.
inline int rounds(int usual) {
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(test.test_suite_name()) + '.' + test.name();
    EXPECT_NE(name.find("Race"), std::string::npos) << name << " is a race test: put \"Race\" into its name";
    const char* factor = std::getenv("CONNECTOR_TEST_ROUNDS"); // NOLINT(concurrency-mt-unsafe)
    return factor ? usual * std::stoi(factor) : usual;
}

/// Runs `body` on a thread of its own, and returns once that thread sleeps or has ended: it waits for something that it
/// can't have, or for nothing.
inline std::thread startAndAwaitSleep(std::function<void()> body) {
    std::promise<long> started;
    std::future<long> id = started.get_future();
    std::thread thread([started = std::move(started), body = std::move(body)]() mutable {
        started.set_value(syscall(SYS_gettid));
        body();
    });
    const std::string status = "/proc/self/task/" + std::to_string(id.get()) + "/stat";
    for (std::string line = ") R"; !line.empty() && line.at(line.rfind(')') + 2) != 'S'; std::this_thread::yield()) {
        line.clear();
        std::getline(std::ifstream(status), line);
    }
    return thread;
}

/// Runs each of `parts` on a thread of its own, `count` times, all starting each round together: threads that have just
/// been started hardly ever meet. A part gets the round's number. `between` runs alone before each round.
inline void race(int count, const std::vector<std::function<void(int)>>& parts,
                 const std::function<void(int)>& between = {}) {
    boost::barrier barrier(static_cast<unsigned>(parts.size() + 1));
    std::vector<std::thread> threads;
    threads.reserve(parts.size());
    for (const auto& part : parts)
        threads.emplace_back([&barrier, &part, count] {
            for (int round = 0; round < count; ++round) {
                barrier.wait();
                part(round);
                barrier.wait();
            }
        });
    for (int round = 0; round < count; ++round) {
        if (between)
            between(round);
        barrier.wait();
        barrier.wait();
    }
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace connector::test
