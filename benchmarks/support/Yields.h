#pragma once

#include <cstdint>

namespace bench {

/// Whether this program has a sched_yield of its own, which counts and returns at once. Everything is measured in a
/// program with the system's and in one with this: each resolution of a future yields, and that hides what else it
/// costs.
extern const bool yieldsAreCounted;

/// How often this thread has yielded, if that is counted.
std::uint64_t yields();

} // namespace bench
