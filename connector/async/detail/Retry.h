#pragma once

#include <connector/async/After.h>
#include <connector/async/detail/Forward.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <random>
#include <ratio>
#include <utility>
#include <variant>

namespace connector::detail {

/// The pause after failure number `failures`; `random` is from 0 to 1.
template <class Policy>
std::chrono::duration<double, std::nano> pauseAfter(const Policy& policy, int failures, double random) {
    const auto longest = static_cast<double>(policy.longestPause.count());
    auto pause = static_cast<double>(policy.pause.count());
    for (int i = 1; i < failures && pause < longest; ++i)
        pause *= 2;
    // At least one, so that the timer thread ends the pause, and attempts aren't nested.
    return std::chrono::duration<double, std::nano>(1 + std::min(pause, longest) * (1 - policy.jitter * random));
}

/// What the links of one retry() share. Exactly one of them owns it at a time, so nothing guards the members.
template <class T, class F, class Policy>
class Retry {
public:
    using Owner = std::unique_ptr<Retry>;

    template <class Function>
    Retry(Policy&& policy, Function&& function, std::shared_ptr<ResultState<T>> result)
        : result(std::move(result)), policy(std::move(policy)), function(std::forward<Function>(function)) {}

    /// Calls the function and waits for its future.
    static void attempt(Owner self, Work& work) {
        const std::shared_ptr<ResultState<T>> result = self->result;
        try {
            auto link = std::make_unique<LinkTo<T, Attempt>>();
            result->functionRuns.store(true, std::memory_order_relaxed);
            Future<T> reply = std::invoke(self->function);
            wait(FutureAccess::state(reply), std::move(link), self, work);
        } catch (...) {
            failed(std::move(self), std::current_exception(), work);
        }
    }

private:
    /// The body of a link between two steps.
    struct Step {
        const Waiter* waiter() const noexcept { return result.get(); }

        Owner owner;
        std::shared_ptr<ResultState<T>> result;
    };

    /// Waits for the reply of an attempt.
    struct Attempt : Step {
        void operator()(Future<T>&& reply, bool cancelled, Work& work) {
            if (cancelled)
                return cancel(std::move(this->owner), work);
            if (FutureAccess::failed(reply))
                return failed(std::move(this->owner), FutureAccess::takeFailure(reply), work);
            Outcome<T> outcome = this->owner->room.holdOutcomeOf(std::move(reply));
            end(std::move(this->owner), std::move(outcome), work);
        }
        void refuse(Work& work) {
            Outcome<T> outcome = this->owner->room.holdRefusal();
            end(std::move(this->owner), std::move(outcome), work);
        }
    };

    /// Waits for the end of a pause.
    struct Pause : Step {
        void operator()(Future<std::monostate>&& /*over*/, bool cancelled, Work& work) {
            if (cancelled || this->result->cancelled.load(std::memory_order_relaxed))
                return cancel(std::move(this->owner), work);
            attempt(std::move(this->owner), work);
        }
        void refuse(Work& work) { cancel(std::move(this->owner), work); }
    };

    /// From now on, the result waits for `source`, with `link`, which becomes the owner. Doesn't throw.
    template <class U, class Body>
    static void wait(StatePtr<U> source, std::unique_ptr<LinkTo<U, Body>> link, Owner& self, Work& work) {
        link->body.result = self->result;
        link->body.owner = std::move(self);
        link->body.result->waitFor(upstreamOf(source));
        attachForward(std::move(source), std::move(link), work);
    }

    static void failed(Owner self, std::exception_ptr failure, Work& work) {
        try {
            if (++self->failures < self->policy.attempts && (!self->policy.retries || self->policy.retries(failure))) {
                auto link = std::make_unique<LinkTo<std::monostate, Pause>>();
                const double chance = std::uniform_real_distribution<>()(self->random);
                const Future<std::monostate> pause = after(pauseAfter(self->policy, self->failures, chance));
                return wait(FutureAccess::state(pause), std::move(link), self, work);
            }
        } catch (...) {
            failure = std::current_exception();
        }
        Outcome<T> outcome = self->room.holdException(std::move(failure));
        end(std::move(self), std::move(outcome), work);
    }

    // The function is destroyed before the result is resolved or cancelled.
    static void end(Owner self, Outcome<T> outcome, Work& work) {
        const std::shared_ptr<ResultState<T>> result = self->result;
        self.reset();
        publish(result, std::move(outcome), work);
    }
    static void cancel(Owner self, Work& work) {
        const std::shared_ptr<ResultState<T>> result = self->result;
        self.reset();
        cancelResult(result, work);
    }

    const std::shared_ptr<ResultState<T>> result;
    OutcomeRoom<T> room;
    const Policy policy;
    F function;
    int failures = 0;
    std::minstd_rand random{std::random_device()()};
};

} // namespace connector::detail
