#include "support/Host.h"
#include "support/Naive.h"
#include "support/OneProcessor.h"
#include "support/Paired.h"

#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>

#include <map>

namespace bench {
namespace {

using connector::ConnectorImpl2;

/// A connector and a floor with the same services. Benchmarks with the same number of services share one pair.
struct Pair {
    explicit Pair(long services) : connector(connectorWith(std::make_shared<ConnectorImpl2>(), services)) {
        const auto echo = std::make_shared<FloorEcho>();
        for (long i = 0; i < services; ++i)
            router.add(serviceName(i), echo);
    }

    static Pair& of(long services) {
        static std::map<long, Pair> pairs;
        return pairs.try_emplace(services, services).first->second;
    }

    const std::shared_ptr<connector::Connector> connector;
    floor::Router router;
};

void compareRequests(benchmark::State& state, Pair& pair, const std::string& address) {
    compare(
        state, [&] { return request(*pair.connector, address); }, [&] { return request(pair.router, address); });
}

void servicesAgainstFloor(benchmark::State& state) {
    compareRequests(state, Pair::of(state.range(0)), serviceName(state.range(0) / 2));
}
BENCHMARK(servicesAgainstFloor)->Name("request/floor")->ArgName("services")->RangeMultiplier(10)->Range(1, 100000);

// The baseline is a connector that has only the service that is called.
void oneOfManyAgainstOneOfOne(benchmark::State& state) {
    const std::string address = serviceName(state.range(0) / 2);
    const auto one = std::make_shared<ConnectorImpl2>();
    one->addServiceProvider(address, std::make_shared<Echo>());
    compare(
        state, [&] { return request(*Pair::of(state.range(0)).connector, address); },
        [&] { return request(*one, address); });
}
BENCHMARK(oneOfManyAgainstOneOfOne)->Name("request/one of one")->ArgName("services")->Arg(100000);

// Calls each service in turn, so that a large registry doesn't stay in the caches.
void allInTurnAgainstFloor(benchmark::State& state) {
    Pair& pair = Pair::of(state.range(0));
    std::vector<std::string> addresses;
    for (long i = 0; i < state.range(0); ++i)
        addresses.push_back(serviceName(i * 7919 % state.range(0)));
    const auto next = [&addresses](std::size_t& i) -> const std::string& { return addresses[i++ % addresses.size()]; };
    compare(
        state, [&, i = std::size_t{0}]() mutable { return request(*pair.connector, next(i)); },
        [&, i = addresses.size() / 2]() mutable { return request(pair.router, next(i)); });
}
BENCHMARK(allInTurnAgainstFloor)->Name("request/floor, in turn")->ArgName("services")->Arg(1000)->Arg(100000);

void segmentsAgainstFloor(benchmark::State& state) {
    std::string address = serviceName(0);
    for (long i = 1; i < state.range(0); ++i)
        address += "/part";
    compareRequests(state, Pair::of(1), address);
}
BENCHMARK(segmentsAgainstFloor)->Name("request/floor")->ArgName("segments")->DenseRange(1, 8);

void nameAgainstFloor(benchmark::State& state) {
    const std::string name(static_cast<std::size_t>(state.range(0)), 'n');
    static std::map<std::string, Pair> pairs;
    const auto [found, added] = pairs.try_emplace(name, 0);
    if (added) {
        found->second.connector->addServiceProvider(name, std::make_shared<Echo>());
        found->second.router.add(name, std::make_shared<FloorEcho>());
    }
    compareRequests(state, found->second, name);
}
BENCHMARK(nameAgainstFloor)->Name("request/floor")->ArgName("name")->Arg(1)->Arg(8)->Arg(64);

void optionalSegmentsSkipped(benchmark::State& state) {
    std::string address = serviceName(0);
    for (long i = 0; i < state.range(0); ++i)
        address.insert(0, "?log/");
    connector::Connector& connector = *Pair::of(1).connector;
    compare(
        state, [&] { return request(connector, address); }, [&] { return request(connector, serviceName(0)); });
}
BENCHMARK(optionalSegmentsSkipped)->Name("request/none skipped")->ArgName("skipped")->Arg(1)->Arg(2)->Arg(4)->Arg(8);

void throughContext(benchmark::State& state) {
    connector::Connector& connector = *Pair::of(1).connector;
    const auto context = connector.newContext();
    const std::string address = serviceName(0);
    compare(
        state,
        [&] { return numberOf(context->handle(std::make_unique<Number>(1), connector::Address(address)).get()); },
        [&] { return request(connector, address); });
}
BENCHMARK(throughContext)->Name("request/connector, through a context");

// The connector is static because its services stay registered with the process's exchange.
void overExchange(benchmark::State& state) {
    static const auto exchange = connectorWith(std::make_shared<connector::ConnectorImpl>(), 1);
    connector::Connector& connector = *Pair::of(1).connector;
    const std::string address = serviceName(0);
    // Two resolutions: the provider's reply, and the caller's reply.
    compare(
        state, [&] { return request(*exchange, address); }, [&] { return request(connector, address); }, {2, 1});
}
BENCHMARK(overExchange)->Name("request/connector, over the exchange");

void answeredByThread(benchmark::State& state) {
    const OneProcessor placed;
    Worker<Later::Task> worker;
    Worker<NaiveLater::Task> naiveWorker;
    ConnectorImpl2 connector;
    NaiveRouter router;
    const std::string address = serviceName(0);
    connector.addServiceProvider(address, std::make_shared<Later>(worker));
    router.add(address, NaiveLater(naiveWorker));
    // The worker's thread yields, not this one.
    compare(
        state, [&] { return request(connector, address); }, [&] { return request(router, address); }, neverYields);
}
BENCHMARK(answeredByThread)->Name("request/naive, answered by another thread");

template <class Route>
void onThreads(benchmark::State& state, Route route) {
    const std::string address = serviceName(0);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(route(Pair::of(1), address));
}
void connectorOnThreads(benchmark::State& state) {
    onThreads(state, [](Pair& pair, const std::string& address) { return request(*pair.connector, address); });
}
void floorOnThreads(benchmark::State& state) {
    onThreads(state, [](Pair& pair, const std::string& address) { return request(pair.router, address); });
}
BENCHMARK(connectorOnThreads)->Name("threads/framework")->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(floorOnThreads)->Name("threads/floor")->ThreadRange(1, 4)->UseRealTime();

} // namespace
} // namespace bench
