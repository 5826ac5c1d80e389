#pragma once

#include <cstdint>

namespace bench {

/// Whether this program has its own sched_yield, which only counts its calls. Each resolution of a future yields, and
/// the system call hides the other costs. Everything is therefore measured in two programs: with the system's
/// sched_yield and with this one.
extern const bool yieldsAreCounted;

/// The number of times that this thread has yielded, if that is counted; otherwise 0.
std::uint64_t yields();

} // namespace bench
