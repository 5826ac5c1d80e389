#include "support/Host.h"
#include "support/Naive.h"
#include "support/OneProcessor.h"

#include <connector/core/ConnectorImpl2.h>

#include <benchmark/benchmark.h>
#include <boost/signals2/signal.hpp>

#include <caf/all.hpp>
#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <zmq.h>

/// One request that carries a number to a service found by name and returns it, made with this framework and with
/// alternatives. Each alternative is used as its manual shows. Those whose messages are bytes or values carry the bare
/// number, which costs less than the object that the others carry.
namespace bench {
namespace {

const std::string name = serviceName(0);

template <class Request>
void measure(benchmark::State& state, Request&& request) {
    for ([[maybe_unused]] auto _ : state)
        if (request() != 1) {
            state.SkipWithError("the reply is not the request's number");
            break;
        }
}

void framework(benchmark::State& state) {
    const auto connector = connectorWith(std::make_shared<connector::ConnectorImpl2>(), 1);
    measure(state, [&] { return request(*connector, name); });
}

void frameworkLater(benchmark::State& state) {
    const OneProcessor placed;
    Worker<Later::Task> worker;
    const auto connector = std::make_shared<connector::ConnectorImpl2>();
    connector->addServiceProvider(name, std::make_shared<Later>(worker));
    measure(state, [&] { return request(*connector, name); });
}

void naive(benchmark::State& state) {
    NaiveRouter router;
    router.add(name, naiveEcho);
    measure(state, [&] { return request(router, name); });
}

void naiveLater(benchmark::State& state) {
    const OneProcessor placed;
    Worker<NaiveLater::Task> worker;
    NaiveRouter router;
    router.add(name, NaiveLater(worker));
    measure(state, [&] { return request(router, name); });
}

void signals(benchmark::State& state) {
    // A signal copies its slots' results, so the reply replaces the message instead.
    using Signal = boost::signals2::signal<void(MessagePtr&)>;
    std::unordered_map<std::string, Signal> routes;
    routes[name].connect([](MessagePtr& message) {
        MessagePtr reply = std::move(message);
        message = std::move(reply);
    });
    measure(state, [&] {
        MessagePtr message = std::make_unique<Number>(1);
        routes.at(name)(message);
        return numberOf(message);
    });
}

void actors(benchmark::State& state) {
    const OneProcessor placed;
    caf::actor_system_config config;
    caf::actor_system system(config);
    const caf::actor echo = system.spawn([]() -> caf::behavior { return {[](long number) { return number; }}; });
    std::unordered_map<std::string, caf::actor> routes{{name, echo}};
    caf::scoped_actor self(system);
    measure(state, [&] {
        long reply = 0;
        self->request(routes.at(name), caf::infinite, 1L)
            .receive([&](long number) { reply = number; }, [](const caf::error&) {});
        return reply;
    });
    self->send_exit(echo, caf::exit_reason::user_shutdown);
}

void zeromq(benchmark::State& state) {
    const OneProcessor placed;
    void* const context = zmq_ctx_new();
    void* const server = zmq_socket(context, ZMQ_REP);
    void* const client = zmq_socket(context, ZMQ_REQ);
    const std::string endpoint = "inproc://" + name;
    if (zmq_bind(server, endpoint.c_str()) != 0 || zmq_connect(client, endpoint.c_str()) != 0)
        throw std::runtime_error("ZeroMQ doesn't connect");
    std::thread worker([server] {
        for (long number = 0; zmq_recv(server, &number, sizeof number, 0) == sizeof number && number != 0;)
            zmq_send(server, &number, sizeof number, 0);
    });
    measure(state, [client] {
        long number = 1;
        zmq_send(client, &number, sizeof number, 0);
        number = 0;
        zmq_recv(client, &number, sizeof number, 0);
        return number;
    });
    const long end = 0;
    zmq_send(client, &end, sizeof end, 0);
    worker.join();
    zmq_close(client);
    zmq_close(server);
    zmq_ctx_term(context);
}

void nng(benchmark::State& state) {
    const OneProcessor placed;
    nng_socket server;
    nng_socket client;
    const std::string endpoint = "inproc://" + name;
    if (nng_rep0_open(&server) != 0 || nng_req0_open(&client) != 0 ||
        nng_listen(server, endpoint.c_str(), nullptr, 0) != 0 || nng_dial(client, endpoint.c_str(), nullptr, 0) != 0)
        throw std::runtime_error("nng doesn't connect");
    std::thread worker([server] {
        for (;;) {
            long number = 0;
            std::size_t size = sizeof number;
            if (nng_recv(server, &number, &size, 0) != 0 || number == 0)
                return;
            nng_send(server, &number, sizeof number, 0);
        }
    });
    measure(state, [client] {
        long number = 1;
        nng_send(client, &number, sizeof number, 0);
        number = 0;
        std::size_t size = sizeof number;
        nng_recv(client, &number, &size, 0);
        return number;
    });
    long end = 0;
    nng_send(client, &end, sizeof end, 0);
    worker.join();
    nng_close(client);
    nng_close(server);
}

BENCHMARK(framework)->Name("caller's thread: this framework");
BENCHMARK(naive)->Name("caller's thread: shared_mutex, unordered_map, std::function, std::promise");
BENCHMARK(signals)->Name("caller's thread: Boost.Signals2 behind a map");
BENCHMARK(frameworkLater)->Name("worker thread: this framework")->UseRealTime();
BENCHMARK(naiveLater)->Name("worker thread: shared_mutex, unordered_map, std::function, std::promise")->UseRealTime();
BENCHMARK(actors)->Name("worker thread: C++ Actor Framework")->UseRealTime();
BENCHMARK(zeromq)->Name("worker thread: ZeroMQ, inproc")->UseRealTime();
BENCHMARK(nng)->Name("worker thread: nng, inproc")->UseRealTime();

} // namespace
} // namespace bench
