#include "support/Yields.h"

#include <sched.h>

namespace bench {
namespace {

thread_local std::uint64_t counted = 0;

} // namespace

const bool yieldsAreCounted = true;

std::uint64_t yields() {
    return counted;
}

} // namespace bench

// Found before the system's by every library that this program loads.
extern "C" int sched_yield() noexcept {
    ++bench::counted;
    return 0;
}
