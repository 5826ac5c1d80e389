#pragma once

#include <boost/thread/lock_types.hpp>
#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace connector::internal {

/// The only way to a connector's registryMutex: shared, exclusive and upgradeable holds as scoped objects, with two
/// promises that the mutex itself doesn't make.
///
/// Nobody starves. boost::shared_mutex lets readers that keep coming pass a waiting writer, and an upgrade waits for a
/// moment without readers. Here writers (exclusive and upgradeable holds) take turns by ticket, and one whose turn it
/// is and that must be alone closes the gate: readers that come later wait until it is done. When it is, all of them
/// are admitted before the next writer may close the gate again. While no writer waits, a reader pays one relaxed load
/// for this.
///
/// Nobody waits for itself. Code of the host's that runs under a hold may come back to the connector. Its thread is
/// known by then (a Callbacks object announces the hold; while there is none, that is another relaxed load), so a
/// shared hold inside it is granted without touching the mutex, and one that excludes the outer hold throws
/// std::system_error (std::errc::resource_deadlock_would_occur).
class RegistryGate {
public:
    explicit RegistryGate(boost::shared_mutex& registryMutex) : registryMutex(registryMutex) {}
    RegistryGate(const RegistryGate&) = delete;
    RegistryGate& operator=(const RegistryGate&) = delete;

    /// Stands in a block in which code of the host's may run under a hold of the same thread.
    class Callbacks {
    public:
        explicit Callbacks(RegistryGate& gate) noexcept;
        Callbacks(const Callbacks&) = delete;
        Callbacks& operator=(const Callbacks&) = delete;
        ~Callbacks();

    private:
        friend class RegistryGate;
        RegistryGate& gate;
        const Callbacks* const outer;
    };

    /// Lets the registry be read, beside other shared holds and one upgradeable hold. In line, like its release: every
    /// request takes one.
    class SharedHold {
    public:
        explicit SharedHold(RegistryGate& gate) : held(&gate.registryMutex) {
            if (gate.callbacks.load(std::memory_order_relaxed) != 0 || gate.closed.load(std::memory_order_relaxed) ||
                !held->try_lock_shared())
                held = gate.takeSharedSlowly();
        }
        SharedHold(const SharedHold&) = delete;
        SharedHold& operator=(const SharedHold&) = delete;
        ~SharedHold() {
            if (held)
                held->unlock_shared();
        }

    private:
        boost::shared_mutex* held; // null inside an outer hold of this thread, which is enough
    };

private:
    /// A writer's place in the line, from its coming to its leaving.
    class Turn {
    public:
        explicit Turn(RegistryGate& gate);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

    private:
        RegistryGate& gate;
    };

    /// Keeps new readers out for as long as it lives. Made by the writer whose turn it is.
    class Closed {
    public:
        explicit Closed(RegistryGate& gate);
        Closed(const Closed&) = delete;
        Closed& operator=(const Closed&) = delete;
        ~Closed();

    private:
        RegistryGate& gate;
    };

public:
    /// Lets the registry be changed; excludes every other hold. Callbacks may run under it.
    class ExclusiveHold {
    public:
        explicit ExclusiveHold(RegistryGate& gate)
            : turn(gate), closed(gate), lock(gate.registryMutex), callbacks(gate) {}

    private:
        const Turn turn;
        const Closed closed;
        const boost::unique_lock<boost::shared_mutex> lock;
        const Callbacks callbacks;
    };

    /// Lets the registry be read and, within an Upgrade, be changed; excludes every hold but shared ones. Callbacks may
    /// run under it.
    class UpgradeableHold {
    public:
        explicit UpgradeableHold(RegistryGate& gate)
            : gate(gate), turn(gate), lock(gate.registryMutex), callbacks(gate) {}

        class Upgrade {
        public:
            explicit Upgrade(UpgradeableHold& hold) : closed(hold.gate), lock(hold.lock) {}

        private:
            const Closed closed;
            const boost::upgrade_to_unique_lock<boost::shared_mutex> lock;
        };

    private:
        RegistryGate& gate;
        const Turn turn;
        boost::upgrade_lock<boost::shared_mutex> lock;
        const Callbacks callbacks;
    };

private:
    bool heldByThisThread() const noexcept;
    boost::shared_mutex* takeSharedSlowly();
    void waitForAdmission();

    boost::shared_mutex& registryMutex;

    // Relaxed: how many Callbacks there are, of all threads. A thread always sees those of its own in it; the others'
    // only send it the slow way round.
    std::atomic<std::uint32_t> callbacks{0};

    // Relaxed: a hint. A reader that misses it meets the writer at registryMutex and comes to look again under `mutex`.
    // Changed under `mutex`, by the writer whose turn it is: true from before it asks for registryMutex until after it
    // let go of it.
    std::atomic<bool> closed{false};

    // Guards everything below; nothing but this class's own code runs under it.
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t nextTicket = 0;      // the next writer's
    std::uint64_t servedTicket = 0;    // the writer's whose turn it is
    std::uint64_t openings = 0;        // how often the gate was opened
    std::uint32_t waitingReaders = 0;  // in front of the closed gate
    std::uint32_t admittedReaders = 0; // let in by the last opening, without their hold yet
};

} // namespace connector::internal
