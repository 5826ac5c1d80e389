#pragma once

#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace connector::test {

/// How often a racing test tries its luck; CONNECTOR_TEST_ROUNDS multiplies it.
inline int rounds(int usual) {
    const char* factor = std::getenv("CONNECTOR_TEST_ROUNDS"); // NOLINT(concurrency-mt-unsafe)
    return factor ? usual * std::stoi(factor) : usual;
}

/// Lets threads go on together. Without one before each round, threads that have just been started hardly ever meet.
class Barrier {
public:
    explicit Barrier(std::size_t parties) : parties(parties) {}

    void wait() {
        std::unique_lock<std::mutex> lock(mutex);
        if (++arrived == parties) {
            arrived = 0;
            ++round;
            changed.notify_all();
        } else {
            changed.wait(lock, [this, mine = round] { return round != mine; });
        }
    }

private:
    const std::size_t parties;
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t arrived = 0;
    std::size_t round = 0;
};

/// Runs each of `parts` on a thread of its own, `count` times, all starting each round together. A part gets the
/// round's number. `between` runs alone before each round.
inline void race(int count, const std::vector<std::function<void(int)>>& parts,
                 const std::function<void(int)>& between = {}) {
    Barrier barrier(parts.size() + 1);
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
