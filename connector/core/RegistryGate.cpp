#include <connector/core/internal/RegistryGate.h>

#include <system_error>

namespace connector::internal {
namespace {

// The holds of this thread under which host code runs, innermost first. Without a destructor, so that the library can
// be unloaded while threads live.
thread_local const RegistryGate::Callbacks* innermost = nullptr;

} // namespace

RegistryGate::Callbacks::Callbacks(RegistryGate& gate) noexcept : gate(gate), outer(innermost) {
    innermost = this;
    gate.callbacks.fetch_add(1, std::memory_order_relaxed);
}

RegistryGate::Callbacks::~Callbacks() {
    gate.callbacks.fetch_sub(1, std::memory_order_relaxed);
    innermost = outer;
}

bool RegistryGate::heldByThisThread() const noexcept {
    for (const Callbacks* callbacks = innermost; callbacks; callbacks = callbacks->outer)
        if (&callbacks->gate == this)
            return true;
    return false;
}

// Null when this thread has a hold already.
boost::shared_mutex* RegistryGate::takeSharedSlowly() {
    if (heldByThisThread())
        return nullptr;
    if (closed.load(std::memory_order_relaxed) || !registryMutex.try_lock_shared())
        waitForAdmission();
    return &registryMutex;
}

// Under `mutex` an open gate means that no writer has registryMutex or waits for it, so the shared hold is had at once.
void RegistryGate::waitForAdmission() {
    std::unique_lock<std::mutex> lock(mutex);
    if (!closed.load(std::memory_order_relaxed)) {
        registryMutex.lock_shared();
        return;
    }
    ++waitingReaders;
    changed.wait(lock, [this, seen = openings] { return openings != seen; });
    registryMutex.lock_shared();
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

RegistryGate::Closed::Closed(RegistryGate& gate) : gate(gate) {
    std::unique_lock<std::mutex> lock(gate.mutex);
    gate.changed.wait(lock, [&gate] { return gate.admittedReaders == 0; });
    gate.closed.store(true, std::memory_order_relaxed);
}

RegistryGate::Closed::~Closed() {
    const std::lock_guard<std::mutex> lock(gate.mutex);
    gate.closed.store(false, std::memory_order_relaxed);
    ++gate.openings;
    gate.admittedReaders = gate.waitingReaders;
    gate.waitingReaders = 0;
    gate.changed.notify_all();
}

} // namespace connector::internal
