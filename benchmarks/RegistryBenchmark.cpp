#include "support/Host.h"

#include <connector/core/ConnectorImpl2.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

namespace bench {
namespace {

using connector::ConnectorImpl2;

void registration(benchmark::State& state) {
    const auto connector = connectorWith(std::make_shared<ConnectorImpl2>(), state.range(0));
    const auto echo = std::make_shared<Echo>();
    for ([[maybe_unused]] auto _ : state) {
        connector->addServiceProvider("another", echo);
        connector->removeServiceProvider("another");
    }
}
BENCHMARK(registration)->Name("registry/add and remove")->ArgName("services")->Arg(1)->Arg(100000);

// One thread routes; the other registers and removes without a pause. Measures one of them.
void underLoad(benchmark::State& state, bool timeRouting) {
    const auto connector = connectorWith(std::make_shared<ConnectorImpl2>(), 1);
    const std::string address = serviceName(0);
    const auto echo = std::make_shared<Echo>();
    const auto route = [&] { benchmark::DoNotOptimize(request(*connector, address)); };
    const auto change = [&] {
        connector->addServiceProvider("another", echo);
        connector->removeServiceProvider("another");
    };
    std::atomic<bool> ended{false};
    std::thread other([&] {
        while (!ended)
            timeRouting ? change() : route();
    });
    for ([[maybe_unused]] auto _ : state)
        timeRouting ? route() : change();
    ended = true;
    other.join();
}
void routingDuringRegistration(benchmark::State& state) {
    underLoad(state, true);
}
void registrationDuringRouting(benchmark::State& state) {
    underLoad(state, false);
}
BENCHMARK(routingDuringRegistration)->Name("registry/a request during registration")->UseRealTime();
BENCHMARK(registrationDuringRouting)->Name("registry/add and remove during routing")->UseRealTime();

} // namespace
} // namespace bench
