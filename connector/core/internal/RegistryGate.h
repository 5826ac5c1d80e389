#pragma once

#include <boost/thread/lock_types.hpp>
#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace connector::internal {

/// The only way to a connector's registryMutex: shared, exclusive and upgradeable holds as scoped objects. It adds two
/// guarantees that boost::shared_mutex lacks:
///
///     const RegistryGate::SharedHold hold(gate);
///     const auto found = providers.find(hash);
///
/// No starvation. boost::shared_mutex lets a stream of readers overtake a waiting writer. Here writers (exclusive and
/// upgradeable holds) are served in the order of their arrival, and a writer that must be alone closes the gate first:
/// readers that arrive later wait until it has finished. Then all of them are admitted before the next writer may close
/// the gate. While no writer waits, this costs a reader one relaxed load.
///
/// No self-deadlock. Host code that runs under a hold may call the connector again. A CallbackScope marks the hold for
/// its thread: where a shared hold inside it would have to wait, it is granted without touching the mutex, and an
/// exclusive or upgradeable one throws std::system_error (std::errc::resource_deadlock_would_occur).
class RegistryGate {
private:
    class Turn;
    class ClosedGate;

public:
    class CallbackScope;
    class SharedHold;
    class ExclusiveHold;
    class UpgradeableHold;

    explicit RegistryGate(boost::shared_mutex& registryMutex) : registryMutex(registryMutex) {}
    RegistryGate(const RegistryGate&) = delete;
    RegistryGate& operator=(const RegistryGate&) = delete;
    ~RegistryGate();

private:
    bool heldByThisThread() const noexcept;
    boost::shared_mutex* lockSharedSlowly();
    void waitForAdmission();

    boost::shared_mutex& registryMutex;

    // Relaxed: a hint. A reader that misses it fails to get registryMutex and looks again under `mutex`. Changed under
    // `mutex`, by the writer whose turn it is: true from before it asks for registryMutex until it has released it.
    std::atomic<bool> closed{false};

    // Guards everything below; only this class's own code runs under it.
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t nextTicket = 0;      // for the next writer
    std::uint64_t servedTicket = 0;    // of the writer whose turn it is
    std::uint32_t waitingReaders = 0;  // that wait for the gate to open
    std::uint32_t admittedReaders = 0; // that the last opening admitted and that have no hold yet
};

/// Marks a block in which host code may run under a hold of the same thread.
class RegistryGate::CallbackScope {
public:
    explicit CallbackScope(RegistryGate& gate) noexcept;
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;
    ~CallbackScope();

private:
    friend class RegistryGate;
    RegistryGate& gate;
    const CallbackScope* const outer;
};

/// The registry may be read, together with other shared holds and one upgradeable hold. Inline, like its release: every
/// request takes one.
class RegistryGate::SharedHold {
public:
    explicit SharedHold(RegistryGate& gate) : held(&gate.registryMutex) {
        if (gate.closed.load(std::memory_order_relaxed) || !held->try_lock_shared())
            held = gate.lockSharedSlowly();
    }
    SharedHold(const SharedHold&) = delete;
    SharedHold& operator=(const SharedHold&) = delete;
    ~SharedHold() {
        if (held)
            held->unlock_shared();
    }

private:
    boost::shared_mutex* held; // null inside another hold of this thread, which suffices
};

/// A writer's place in the queue of writers. Waits until it is served.
class RegistryGate::Turn {
public:
    explicit Turn(RegistryGate& gate);
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

private:
    RegistryGate& gate;
};

/// Keeps new readers out. Made by the writer whose turn it is.
class RegistryGate::ClosedGate {
public:
    explicit ClosedGate(RegistryGate& gate);
    ClosedGate(const ClosedGate&) = delete;
    ClosedGate& operator=(const ClosedGate&) = delete;
    ~ClosedGate();

private:
    RegistryGate& gate;
};

/// The registry may be changed; excludes every other hold. Host code may run under it.
class RegistryGate::ExclusiveHold {
public:
    explicit ExclusiveHold(RegistryGate& gate) : turn(gate), closed(gate), lock(gate.registryMutex), callbacks(gate) {}

private:
    const Turn turn;
    const ClosedGate closed;
    const boost::unique_lock<boost::shared_mutex> lock;
    const CallbackScope callbacks;
};

/// The registry may be read and, within an Upgrade, be changed; excludes every hold but shared ones. Host code may run
/// under it.
class RegistryGate::UpgradeableHold {
public:
    explicit UpgradeableHold(RegistryGate& gate) : gate(gate), turn(gate), lock(gate.registryMutex), callbacks(gate) {}

    class Upgrade {
    public:
        explicit Upgrade(UpgradeableHold& hold) : closed(hold.gate), lock(hold.lock) {}

    private:
        const ClosedGate closed;
        const boost::upgrade_to_unique_lock<boost::shared_mutex> lock;
    };

private:
    RegistryGate& gate;
    const Turn turn;
    boost::upgrade_lock<boost::shared_mutex> lock;
    const CallbackScope callbacks;
};

} // namespace connector::internal
