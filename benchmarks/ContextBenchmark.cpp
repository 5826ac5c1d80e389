#include "support/Paired.h"

#include <connector/context/ContextImpl.h>

#include <boost/any.hpp>
#include <boost/unordered_map.hpp>

#include <array>
#include <memory>
#include <string>

namespace bench {
namespace {

using connector::Context;
using connector::ContextImpl;
using connector::ContextScope;

constexpr std::array scopes{ContextScope::Local, ContextScope::Request, ContextScope::Session,
                            ContextScope::SharedSession, ContextScope::Process};

// A value `depth` scopes further out than Local; the inner stores have other keys. The baseline does the same look-ups
// and makes the same copy.
void get(benchmark::State& state) {
    const auto depth = static_cast<std::size_t>(state.range(0));
    const auto context = std::make_shared<ContextImpl>();
    const Context& reading = *context;
    std::array<boost::unordered_map<std::string, boost::any>, scopes.size()> stores;
    for (std::size_t i = 0; i < scopes.size(); ++i) {
        context->set("other", 1, scopes.at(i));
        stores.at(i)["other"] = 1;
    }
    context->set("user", 42, scopes.at(depth));
    stores.at(depth)["user"] = 42;
    const std::string key = "user";
    compare(
        state, [&] { return reading.get(key); },
        [&] {
            for (const auto& store : stores)
                if (const auto found = store.find(key); found != store.end())
                    return found->second;
            return boost::any();
        },
        neverYields);
}
BENCHMARK(get)->Name("context/bare look-ups, get")->ArgName("depth")->DenseRange(0, 4);

void set(benchmark::State& state) {
    const auto context = std::make_shared<ContextImpl>();
    boost::unordered_map<std::string, boost::any> store;
    const std::string key = "user";
    compare(
        state,
        [&] {
            context->set(key, 42, ContextScope::Local);
            return 0;
        },
        [&] {
            store[key] = boost::any(42);
            return 0;
        },
        neverYields);
}
BENCHMARK(set)->Name("context/bare assignment, set");

void derive(benchmark::State& state) {
    const auto session = std::make_shared<ContextImpl>()->newSharedSession()->newSession();
    const Context& fresh = *session;
    compare(
        state, [&] { return session->newRequest(); },
        [&] {
            benchmark::DoNotOptimize(&fresh);
            return std::make_shared<ContextImpl>();
        },
        neverYields);
}
BENCHMARK(derive)->Name("context/make_shared, derive");

} // namespace
} // namespace bench
