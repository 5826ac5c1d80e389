#pragma once

#include <cstddef>

namespace connector::test {

/// Allocations through operator new on this thread, from construction on.
class AllocationCount {
public:
    AllocationCount();
    std::size_t operator()() const;

private:
    const std::size_t before;
};

/// While it lives, lets allocations on this thread fail with std::bad_alloc: the one after `successes` others, and, if
/// `forEver`, all that follow.
class AllocationFailure {
public:
    AllocationFailure(std::size_t successes, bool forEver);
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;
    ~AllocationFailure();

    /// Whether it came to that.
    static bool struck();
};

} // namespace connector::test
