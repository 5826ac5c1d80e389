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

// One of these threads routes, the other registers and removes without a pause.
void beside(benchmark::State& state, bool timeRouting) {
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
void routingBesideRegistration(benchmark::State& state) {
    beside(state, true);
}
void registrationBesideRouting(benchmark::State& state) {
    beside(state, false);
}
BENCHMARK(routingBesideRegistration)->Name("registry/a request beside registration")->UseRealTime();
BENCHMARK(registrationBesideRouting)->Name("registry/add and remove beside routing")->UseRealTime();

} // namespace
} // namespace bench
