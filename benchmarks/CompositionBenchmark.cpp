#include "support/Paired.h"

#include <connector/async/After.h>
#include <connector/async/Cancel.h>
#include <connector/async/Collect.h>
#include <connector/async/Promise.h>
#include <connector/async/Then.h>
#include <connector/async/ThenValue.h>
#include <connector/async/Via.h>
#include <connector/async/WhenAll.h>
#include <connector/async/WhenAny.h>
#include <connector/async/Within.h>

#include <random>
#include <vector>

/// The cost of operations on futures, against then() or whenAll(). The operation is attached to pending futures, these
/// are resolved, and the result is taken. No consumer is blocked, so nothing yields.
namespace bench {
namespace {

using namespace connector;

template <class Attach>
long one(Attach attach) {
    Promise<long> head;
    Future<long> end = attach(head.future());
    head.setValue(1);
    return end.get();
}

template <class Attach>
std::size_t eight(Attach attach) {
    std::vector<Promise<long>> promises(8);
    std::vector<Future<long>> futures;
    futures.reserve(promises.size());
    for (Promise<long>& promise : promises)
        futures.push_back(promise.future());
    auto all = attach(std::move(futures));
    for (Promise<long>& promise : promises)
        promise.setValue(1);
    return sizeof(all.get());
}

long addOne(long value) {
    return value + 1;
}

template <class Attach>
void againstThen(benchmark::State& state, Attach attach) {
    const auto byThen = [](Future<long>&& value) {
        return then(std::move(value), [](Future<long> resolved) { return addOne(resolved.get()); });
    };
    compare(
        state, [&] { return one(attach); }, [&] { return one(byThen); }, neverYields);
}

void byThenValue(benchmark::State& state) {
    againstThen(state, [](Future<long>&& value) { return std::move(value) | thenValue(addOne); });
}
BENCHMARK(byThenValue)->Name("future/then, thenValue");

void byWithin(benchmark::State& state) {
    againstThen(state, [](Future<long>&& value) { return std::move(value) | within(std::chrono::seconds(10)); });
}
BENCHMARK(byWithin)->Name("future/then, within");

void byVia(benchmark::State& state) {
    const auto inlineExecutor = [](auto task) { task(); };
    againstThen(state, [&](Future<long>&& value) { return Future<long>(via(std::move(value), inlineExecutor)); });
}
BENCHMARK(byVia)->Name("future/then, via an inline executor");

template <class Attach>
void againstWhenAll(benchmark::State& state, Attach attach) {
    const auto byWhenAll = [](auto&& futures) { return whenAll(std::move(futures)); };
    compare(
        state, [&] { return eight(attach); }, [&] { return eight(byWhenAll); }, neverYields);
}

void byWhenAny(benchmark::State& state) {
    againstWhenAll(state, [](auto&& futures) { return whenAny(std::move(futures)); });
}
BENCHMARK(byWhenAny)->Name("future/whenAll of 8, whenAny");

void byCollect(benchmark::State& state) {
    againstWhenAll(state, [](auto&& futures) { return collect(std::move(futures)); });
}
BENCHMARK(byCollect)->Name("future/whenAll of 8, collect");

/// Adds and removes one timer while others are pending, at random times in the next hour. The process has one timer
/// queue, so the rounds of the baseline, with 100 others, come first.
void timers(benchmark::State& state) {
    std::minstd_rand random;
    const auto add = [&] { return after(std::chrono::milliseconds(3'600'000 + random() % 3'600'000)); };
    const auto addAndRemove = [&] {
        Future<std::monostate> added = add();
        return cancel(added);
    };
    std::vector<Future<std::monostate>> pending;
    const auto measured = [&](std::size_t others) {
        pending.reserve(others);
        while (pending.size() < others)
            pending.push_back(add());
        std::vector<double> times;
        times.reserve(100);
        for (int i = 0; i < 100; ++i)
            times.push_back(nanoseconds(1000, 0, addAndRemove));
        return median(times);
    };
    for ([[maybe_unused]] auto _ : state) {
        const double few = measured(100);
        const double many = measured(100'000);
        state.counters["ns"] = many;
        state.counters["baseline_ns"] = few;
        state.counters["ratio"] = many / few;
    }
    for (Future<std::monostate>& future : pending)
        cancel(future);
}
BENCHMARK(timers)->Name("timer/100 others, 100,000 others")->Iterations(1);

} // namespace
} // namespace bench
