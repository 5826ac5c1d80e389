#pragma once

#include <sched.h>

namespace bench {

/// Keeps this thread, and those that it starts, on one processor for as long as it lives. What a hand-over between
/// threads costs depends most of all on whether the other's processor was asleep; on one processor it is a switch of
/// threads, each time.
class OneProcessor {
public:
    OneProcessor() {
        sched_getaffinity(0, sizeof before, &before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;
    ~OneProcessor() { sched_setaffinity(0, sizeof before, &before); }

private:
    cpu_set_t before;
};

} // namespace bench
