#pragma once

#include <connector/async/detail/Cancellation.h>

#include <cassert>
#include <exception>
#include <memory>
#include <utility>

namespace connector::detail {

/// A continuation that may make another one due: its result may have a continuation too. It adds that one to the work
/// of the loop that runs it instead of calling it, so that a chain of any length runs in a loop and not in nested
/// calls. Nothing else is delayed by that, because it is the last step of a link.
class ChainLink {
public:
    ChainLink(const ChainLink&) = delete;
    ChainLink& operator=(const ChainLink&) = delete;
    virtual ~ChainLink() = default;

    /// Runs a link that is due, and adds the links that it makes due to `work`.
    virtual void run(Work& work) = 0;

protected:
    ChainLink() = default;

private:
    friend class Work;

    /// The next link in the list of a Work.
    std::unique_ptr<ChainLink> next;
};

/// The tasks of one loop: links that are due, and cancelled waiters whose sources must also be cancelled. Both lists
/// are linked through their elements, so adding allocates nothing.
class Work {
public:
    Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    ~Work() { assert(!links && !waiters); }

    void add(std::unique_ptr<ChainLink> link) noexcept {
        link->next = std::move(links);
        links = std::move(link);
    }

    /// Adds a waiter that the caller has cancelled. Each is added once.
    void add(std::shared_ptr<Waiter> waiter) noexcept {
        assert(!waiter->next);
        waiter->next = std::move(waiters);
        waiters = std::move(waiter);
    }

    /// Runs all tasks, including those that they add. Then throws the exception of a continuation that isn't a link.
    void run() {
        if (links || waiters)
            runAll();
    }

private:
    // Not inlined: usually there is nothing to do.
    [[gnu::noinline]] void runAll() {
        std::exception_ptr thrown;
        do
            try {
                if (links)
                    runLink();
                else
                    cancelSource();
            } catch (...) {
                thrown = std::current_exception();
            }
        while (links || waiters);
        if (thrown)
            std::rethrow_exception(thrown);
    }

    void runLink() {
        const std::unique_ptr<ChainLink> link = std::move(links);
        links = std::move(link->next);
        link->run(*this);
    }

    void cancelSource() {
        const Waiter* const waiter = waiters.get();
        const Upstream source = waiters->nextSource();
        if (!source.visit) {
            const std::shared_ptr<Waiter> done = std::move(waiters);
            waiters = std::move(done->next);
        } else if (const std::shared_ptr<void> state = source.state.lock()) {
            cancelFrom(state, source.visit, waiter, *this);
        }
    }

    std::unique_ptr<ChainLink> links;
    std::shared_ptr<Waiter> waiters;
};

} // namespace connector::detail
