#include "Worker.h"
#include "support/Host.h"
#include "support/OneProcessor.h"
#include "support/Paired.h"

#include <future>
#include <stdexcept>

namespace bench {
namespace {

void ready(benchmark::State& state) {
    MessagePtr message = std::make_unique<Number>(1);
    compare(
        state, [&] { return numberOf(message = connector::makeReadyFuture(std::move(message)).get()); },
        [&] { return numberOf(message = floor::ready(std::move(message)).get()); });
}
BENCHMARK(ready)->Name("future/floor, ready");

// The baseline is one throw and catch, which taking a failure costs in any case.
void failed(benchmark::State& state) {
    const auto caught = [](auto&& get) {
        try {
            get();
            return false;
        } catch (const std::invalid_argument&) {
            return true;
        }
    };
    const auto fail = [] { connector::makeExceptionalFuture<MessagePtr>(std::invalid_argument("refused")).get(); };
    const auto rethrow = [] { std::rethrow_exception(std::make_exception_ptr(std::invalid_argument("refused"))); };
    compare(
        state, [&] { return caught(fail); }, [&] { return caught(rethrow); }, {1, 0});
}
BENCHMARK(failed)->Name("future/throw and catch, failed");

// The consumer waits; another thread resolves.
void awaited(benchmark::State& state) {
    using State = connector::detail::SharedFutureState<MessagePtr>;
    struct Resolve {
        std::shared_ptr<State> state;
        void operator()() { state->setValue(std::make_unique<Number>(1)); }
    };
    struct Fulfil {
        std::promise<MessagePtr> promise;
        void operator()() { promise.set_value(std::make_unique<Number>(1)); }
    };
    const OneProcessor placed;
    Worker<Resolve> resolver;
    Worker<Fulfil> fulfiller;
    compare(
        state,
        [&] {
            auto shared = std::make_shared<State>();
            Reply future(shared);
            resolver.post({std::move(shared)});
            return numberOf(future.get());
        },
        [&] {
            std::promise<MessagePtr> promise;
            auto future = promise.get_future();
            fulfiller.post({std::move(promise)});
            return numberOf(future.get());
        },
        neverYields);
}
BENCHMARK(awaited)->Name("future/standard promise, awaited");

} // namespace
} // namespace bench
