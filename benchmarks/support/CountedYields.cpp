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

// Every library that this program loads calls this function instead of the system's.
extern "C" int sched_yield() noexcept {
    ++bench::counted;
    return 0;
}
