#pragma once

#include "support/Yields.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace bench {

inline double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Nanoseconds for each of `calls` calls of `body`. Where yields are counted, ends the program unless each call yielded
/// `yieldsPerCall` times: the figures of that program would mean something else.
template <class Body>
double nanoseconds(int calls, std::uint64_t yieldsPerCall, Body& body) {
    const std::uint64_t before = yields();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i)
        benchmark::DoNotOptimize(body());
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - begin;
    const std::uint64_t expected = yieldsAreCounted ? yieldsPerCall * static_cast<std::uint64_t>(calls) : 0;
    if (yields() - before != expected) {
        std::fprintf(stderr, "%d calls yielded %llu times instead of %llu\n", calls,
                     static_cast<unsigned long long>(yields() - before), static_cast<unsigned long long>(expected));
        std::exit(1); // NOLINT(concurrency-mt-unsafe): nothing else runs here
    }
    return elapsed.count() / calls;
}

/// How often one call yields: once for each future that is resolved on its thread.
struct YieldsPerCall {
    std::uint64_t body = 1;
    std::uint64_t yardstick = 1;
};

constexpr YieldsPerCall neverYields{0, 0};

/// Measures `body` beside `yardstick`: in each round some calls of one, then as many of the other, the first of a round
/// by turns, so that whatever else the machine does meets both. Reports the medians over the rounds of both times and
/// of the rounds' ratios.
template <class Body, class Yardstick>
void compare(benchmark::State& state, Body&& body, Yardstick&& yardstick, YieldsPerCall expected = {},
             int callsPerRound = 100) {
    std::vector<double> times;
    std::vector<double> yardsticks;
    std::vector<double> ratios;
    bool bodyFirst = false;
    for ([[maybe_unused]] auto _ : state) {
        bodyFirst = !bodyFirst;
        const double before = bodyFirst ? 0 : nanoseconds(callsPerRound, expected.yardstick, yardstick);
        times.push_back(nanoseconds(callsPerRound, expected.body, body));
        yardsticks.push_back(bodyFirst ? nanoseconds(callsPerRound, expected.yardstick, yardstick) : before);
        ratios.push_back(times.back() / yardsticks.back());
    }
    state.counters["ns"] = median(times);
    state.counters["yardstick_ns"] = median(yardsticks);
    state.counters["ratio"] = median(ratios);
}

} // namespace bench
