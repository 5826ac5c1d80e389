#include "support/Paired.h"

#include <connector/api/Address.h>

#include <string>

namespace bench {
namespace {

using connector::Address;

// One segment fits a small string, eight don't.
std::string addressText(long segments) {
    std::string text = "text";
    for (long i = 1; i < segments; ++i)
        text += "/segment";
    return text;
}

void make(benchmark::State& state) {
    const std::string text = addressText(state.range(0));
    compare(
        state, [&] { return Address(text).empty(); }, [&] { return std::string(text).empty(); }, neverYields);
}

void copy(benchmark::State& state) {
    const Address address(addressText(state.range(0)));
    const std::string text = addressText(state.range(0));
    compare(
        state, [&] { return Address(address); }, [&] { return std::string(text); }, neverYields);
}

void move(benchmark::State& state) {
    Address address(addressText(state.range(0)));
    std::string text = addressText(state.range(0));
    compare(
        state,
        [&] {
            Address moved(std::move(address));
            benchmark::DoNotOptimize(moved);
            address = std::move(moved);
            return 0;
        },
        [&] {
            std::string moved(std::move(text));
            benchmark::DoNotOptimize(moved);
            text = std::move(moved);
            return 0;
        },
        neverYields);
}

// A provider that takes all segments of its address, against the same by hand with a text and a position. Each works on
// its own copy.
void popAll(benchmark::State& state) {
    const std::string text = addressText(state.range(0));
    const Address given(text);
    compare(
        state,
        [&] {
            std::size_t sum = 0;
            for (Address address(given); !address.empty();) {
                std::string segment = address.pop();
                benchmark::DoNotOptimize(segment);
                sum += segment.size();
            }
            return sum;
        },
        [&] {
            const std::string path(text); // NOLINT(performance-unnecessary-copy-initialization): an address copies too
            std::size_t sum = 0;
            for (std::size_t position = 0; position != std::string::npos;) {
                const std::size_t slash = path.find('/', position);
                std::string segment = path.substr(position, slash - position);
                benchmark::DoNotOptimize(segment);
                sum += segment.size();
                position = slash == std::string::npos ? slash : slash + 1;
            }
            return sum;
        },
        neverYields);
}

void hashAll(benchmark::State& state) {
    const std::string text = addressText(state.range(0));
    const Address given(text);
    compare(
        state,
        [&] {
            std::uint64_t sum = 0;
            for (Address address(given); !address.empty();)
                sum += address.popHash();
            return sum;
        },
        [&] {
            const std::string path(text); // NOLINT(performance-unnecessary-copy-initialization): an address copies too
            std::uint64_t sum = 0;
            std::uint64_t hash = 5381;
            for (const char c : path) {
                if (c == '/') {
                    sum += hash;
                    hash = 5381;
                } else {
                    hash = hash * 33 + static_cast<std::uint64_t>(static_cast<signed char>(c));
                }
            }
            return sum + hash;
        },
        neverYields);
}

BENCHMARK(make)->Name("address/bare string, make")->ArgName("segments")->Arg(1)->Arg(8);
BENCHMARK(copy)->Name("address/bare string, copy")->ArgName("segments")->Arg(1)->Arg(8);
BENCHMARK(move)->Name("address/bare string, move there and back")->ArgName("segments")->Arg(1)->Arg(8);
BENCHMARK(popAll)->Name("address/by hand, take all segments")->ArgName("segments")->Arg(1)->Arg(3)->Arg(8);
BENCHMARK(hashAll)->Name("address/by hand, hash all segments")->ArgName("segments")->Arg(1)->Arg(3)->Arg(8);

} // namespace
} // namespace bench
