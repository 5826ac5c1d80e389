#pragma once

#include <sched.h>

namespace bench {

/// While it exists, keeps this thread and the threads that it starts on one processor. On several processors, the cost
/// of passing work to another thread depends mostly on whether that thread's processor was asleep. On one processor it
/// is always a switch of threads.
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
