#include <connector/core/internal/RegistryGate.h>

#include <cassert>
#include <system_error>

namespace connector::internal {
namespace {

// This thread's holds under which host code runs, innermost first. Without a destructor, so that the library can be
// unloaded while threads live.
thread_local const RegistryGate::CallbackScope* innermost = nullptr;

} // namespace

RegistryGate::~RegistryGate() {
    assert(!closed.load(std::memory_order_relaxed));
    assert(servedTicket == nextTicket && waitingReaders == 0 && admittedReaders == 0);
}

RegistryGate::CallbackScope::CallbackScope(RegistryGate& gate) noexcept : gate(gate), outer(innermost) {
    innermost = this;
}

RegistryGate::CallbackScope::~CallbackScope() {
    assert(innermost == this);
    innermost = outer;
}

bool RegistryGate::heldByThisThread() const noexcept {
    for (const CallbackScope* scope = innermost; scope; scope = scope->outer)
        if (&scope->gate == this)
            return true;
    return false;
}

// Null when this thread has a hold already.
boost::shared_mutex* RegistryGate::lockSharedSlowly() {
    if (heldByThisThread())
        return nullptr;
    if (closed.load(std::memory_order_relaxed) || !registryMutex.try_lock_shared())
        waitForAdmission();
    return &registryMutex;
}

// With `mutex` held and the gate open, no writer has registryMutex or waits for it, so the shared hold is granted at
// once. A waiting reader finds the gate open when it wakes: no writer closes it while admitted readers have no hold.
void RegistryGate::waitForAdmission() {
    std::unique_lock<std::mutex> lock(mutex);
    if (!closed.load(std::memory_order_relaxed)) {
        registryMutex.lock_shared();
        return;
    }
    ++waitingReaders;
    changed.wait(lock, [this] { return !closed.load(std::memory_order_relaxed); });
    registryMutex.lock_shared();
    assert(admittedReaders > 0);
    if (--admittedReaders == 0)
        changed.notify_all();
}

RegistryGate::Turn::Turn(RegistryGate& gate) : gate(gate) {
    if (gate.heldByThisThread())
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    std::unique_lock<std::mutex> lock(gate.mutex);
    gate.changed.wait(lock, [&gate, ticket = gate.nextTicket++] { return gate.servedTicket == ticket; });
}

RegistryGate::Turn::~Turn() {
    const std::lock_guard<std::mutex> lock(gate.mutex);
    ++gate.servedTicket;
    gate.changed.notify_all();
}

RegistryGate::ClosedGate::ClosedGate(RegistryGate& gate) : gate(gate) {
    std::unique_lock<std::mutex> lock(gate.mutex);
    gate.changed.wait(lock, [&gate] { return gate.admittedReaders == 0; });
    gate.closed.store(true, std::memory_order_relaxed);
}

RegistryGate::ClosedGate::~ClosedGate() {
    const std::lock_guard<std::mutex> lock(gate.mutex);
    gate.closed.store(false, std::memory_order_relaxed);
    gate.admittedReaders = gate.waitingReaders;
    gate.waitingReaders = 0;
    gate.changed.notify_all();
}

} // namespace connector::internal
