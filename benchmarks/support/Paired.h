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

/// The mean time of `calls` calls of `body`, in nanoseconds. If yields are counted, ends the program unless each call
/// yielded `yieldsPerCall` times: its results would be meaningless.
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
        std::exit(1);
    }
    return elapsed.count() / calls;
}

/// The number of times that one call yields: once for each future that is resolved on its thread.
struct YieldsPerCall {
    std::uint64_t body = 1;
    std::uint64_t baseline = 1;
};

constexpr YieldsPerCall neverYields{0, 0};

/// Measures `body` against `baseline`. Each round makes some calls of one and then as many of the other, alternating
/// which is first, so that other load on the machine affects both. Reports the medians, over all rounds, of both times
/// and of their ratio.
template <class Body, class Baseline>
void compare(benchmark::State& state, Body&& body, Baseline&& baseline, YieldsPerCall expected = {},
             int callsPerRound = 100) {
    std::vector<double> times;
    std::vector<double> baselines;
    std::vector<double> ratios;
    bool bodyFirst = false;
    for ([[maybe_unused]] auto _ : state) {
        bodyFirst = !bodyFirst;
        const double before = bodyFirst ? 0 : nanoseconds(callsPerRound, expected.baseline, baseline);
        times.push_back(nanoseconds(callsPerRound, expected.body, body));
        baselines.push_back(bodyFirst ? nanoseconds(callsPerRound, expected.baseline, baseline) : before);
        ratios.push_back(times.back() / baselines.back());
    }
    state.counters["ns"] = median(times);
    state.counters["baseline_ns"] = median(baselines);
    state.counters["ratio"] = median(ratios);
}

} // namespace bench
