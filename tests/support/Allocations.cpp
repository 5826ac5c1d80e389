#include "support/Allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocations = 0;
thread_local bool failing = false, failingForEver = false, failed = false;
thread_local std::ptrdiff_t successesLeft = 0;

bool isToFail() {
    if (!failing || successesLeft-- > 0)
        return false;
    failed = true;
    failing = failingForEver;
    return true;
}

} // namespace

// All other forms of new and delete end in these.
void* operator new(std::size_t size) {
    ++allocations;
    void* block = isToFail() ? nullptr : std::malloc(size ? size : 1);
    if (!block)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace connector::test {

AllocationCount::AllocationCount() : before(allocations) {}

std::size_t AllocationCount::operator()() const {
    return allocations - before;
}

AllocationFailure::AllocationFailure(std::size_t successes, bool forEver) {
    failed = false;
    successesLeft = static_cast<std::ptrdiff_t>(successes);
    failingForEver = forEver;
    failing = true;
}

AllocationFailure::~AllocationFailure() {
    failing = false;
}

bool AllocationFailure::struck() {
    return failed;
}

} // namespace connector::test
