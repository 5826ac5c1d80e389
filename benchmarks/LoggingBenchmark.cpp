#include <fl/log/basic_diagnostic_logger.h>

#include <benchmark/benchmark.h>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <string>

namespace bench {
namespace {

// Takes formatted records and drops them.
struct NowhereBackend : boost::log::sinks::basic_formatted_sink_backend<char> {
    static void consume(const boost::log::record_view&, const std::string& text) { benchmark::DoNotOptimize(&text); }
};

constexpr std::uint32_t wanted = 0x100;
constexpr std::uint32_t unwanted = 0x8;

void statements(benchmark::State& state, std::uint32_t severity) {
    fl::log::basic_diagnostic_logger<char> logger("benchmark");
    const std::string piece = "service";
    for ([[maybe_unused]] auto _ : state) {
        FL_LOG(logger, severity) << "Skipping optional service '" << piece << "'";
        benchmark::ClobberMemory();
    }
}

void masked(benchmark::State& state) {
    statements(state, unwanted);
}

void filtered(benchmark::State& state) {
    boost::log::core::get()->set_filter([](const boost::log::attribute_value_set&) { return false; });
    statements(state, wanted);
    boost::log::core::get()->reset_filter();
}

void written(benchmark::State& state) {
    const auto sink = boost::make_shared<boost::log::sinks::synchronous_sink<NowhereBackend>>();
    boost::log::core::get()->add_sink(sink);
    statements(state, wanted);
    boost::log::core::get()->remove_sink(sink);
}

BENCHMARK(masked)->Name("log/masked out");
BENCHMARK(filtered)->Name("log/refused by a filter");
BENCHMARK(written)->Name("log/written to a sink that drops it");

} // namespace
} // namespace bench
