#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <new>
#include <string>

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

/// Calls `round` with a function that runs an operation and tells what it gives. In the first round the first
/// allocation of each such operation fails, in the next the second, and so on until none fails; then again with all
/// later ones failing, too, unless `orders` says otherwise.
template <class Round>
void withEachAllocationFailing(Round round, std::initializer_list<bool> orders = {false, true}) {
    for (const bool forEver : orders) {
        bool struck = true;
        for (std::size_t successes = 0; struck; ++successes) {
            SCOPED_TRACE("allocation " + std::to_string(successes) + (forEver ? " and all later ones" : ""));
            struck = false;
            round([&](auto&& operation) {
                const AllocationFailure failure(successes, forEver);
                std::string got = "done"; // short texts, which need no memory
                try {
                    operation();
                } catch (const std::bad_alloc&) {
                    got = "bad_alloc";
                } catch (...) {
                    got = "failed";
                }
                struck = AllocationFailure::struck() || struck;
                return got;
            });
        }
    }
}

} // namespace connector::test
