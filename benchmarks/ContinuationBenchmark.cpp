#include "support/Paired.h"

#include <connector/async/Coroutine.h>
#include <connector/async/Promise.h>
#include <connector/async/Then.h>

#include <boost/thread/future.hpp>

#include <vector>

/// The cost of continuations, against Boost.Thread's future::then on the same thread (boost::launch::sync). A chain of
/// continuations is attached to a pending future, that future is resolved, and the last result is taken. No consumer is
/// blocked, so nothing yields.
namespace bench {
namespace {

using connector::Future;
using connector::Promise;

using Boost = boost::future<long>;

long byBoost(long links) {
    boost::promise<long> head;
    Boost end = head.get_future();
    for (long i = 0; i < links; ++i)
        end = end.then(boost::launch::sync, [](Boost value) { return value.get() + 1; });
    head.set_value(0);
    return end.get();
}

template <class Attach>
long byCompanion(long links, Attach attach) {
    Promise<long> head;
    Future<long> end = head.future();
    for (long i = 0; i < links; ++i)
        end = attach(std::move(end));
    head.setValue(0);
    return end.get();
}

Future<long> addOne(Future<long> value) {
    co_return co_await value + 1;
}

template <class Attach>
void chain(benchmark::State& state, Attach attach) {
    const long links = state.range(0);
    compare(
        state, [&] { return byCompanion(links, attach); }, [&] { return byBoost(links); }, neverYields);
}

Future<long> thenAddOne(Future<long>&& value) {
    return connector::then(std::move(value), [](Future<long> resolved) { return resolved.get() + 1; });
}

void thenLinks(benchmark::State& state) {
    chain(state, thenAddOne);
}
BENCHMARK(thenLinks)->Name("future/Boost.Thread, then")->ArgName("links")->Arg(1)->Arg(10)->Arg(100);

void coroutineLinks(benchmark::State& state) {
    chain(state, [](Future<long>&& value) { return addOne(std::move(value)); });
}
BENCHMARK(coroutineLinks)->Name("future/Boost.Thread, co_await")->ArgName("links")->Arg(1)->Arg(10)->Arg(100);

} // namespace
} // namespace bench
