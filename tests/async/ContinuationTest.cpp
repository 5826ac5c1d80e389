#include "async/Mechanism.h"
#include "support/Rounds.h"

#include <connector/async/Ready.h>
#include <connector/async/Then.h>

#include <algorithm>
#include <atomic>

namespace connector::test {
namespace {

constexpr detail::FutureStatus Cancelled = detail::FutureStatus::Cancelled;

class Continuation : public testing::TestWithParam<Mechanism> {
protected:
    const Mechanism& how = GetParam();
};
INSTANTIATE_TEST_SUITE_P(By, Continuation, testing::ValuesIn(mechanisms()),
                         [](const auto& info) { return std::string(info.param.name); });

/// Holds `alive` as long as there is memory of its.
template <class T>
struct Watched : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = Watched<U>;
    };
    explicit Watched(std::shared_ptr<int> alive) : alive(std::move(alive)) {}
    template <class U>
    Watched(const Watched<U>& other) : alive(other.alive) {}
    std::shared_ptr<int> alive;
};

/// The expected log of a continuation. It is (a)ttached, its result is (c)ancelled, its (s)ource and the (o)ther end,
/// it (r)uns and is (d)estroyed.
struct Model {
    const Mechanism& how;
    const End& source;
    const End& other;
    const bool claimed, cancelsInside;
    bool attached = false, sourceEnded = claimed, otherEnded = false, ran = false, ended = false;
    bool sourceCancelled = false, otherCancelled = false;
    std::string_view text{};
    std::string log{};

    void happens(char event) {
        attached |= event == 'a';
        sourceEnded |= event == 's';
        otherEnded |= event == 'o';
        const bool ranBefore = ran;
        const bool destroyedBefore = ran || ended;
        if (attached && !ended)
            text = step(event);
        ended = !text.empty();
        log += event + std::string(ran && !ranBefore ? "r" : "") + (!destroyedBefore && (ran || ended) ? "d" : "");
    }

private:
    /// Gives the result's outcome, if there is one now.
    std::string_view step(char event) {
        if (event == 'c' && !cancelsInside) {
            sourceCancelled = !sourceEnded && (how.needsSource || ran);
            otherCancelled = !otherEnded && how.needsOther;
            ran |= how.isCoroutine;
            return cancelledText;
        }
        if (!ran) {
            if (claimed && !how.needsOther)
                return source.text;
            if ((how.needsSource && !sourceEnded) || (how.needsOther && !otherEnded))
                return {};
            if (!how.needsBoth() && (how.needsSource ? source : other).text == cancelledText)
                return cancelledText;
            ran = true;
            if (cancelsInside && event != 'a') {
                sourceCancelled = !sourceEnded;
                return cancelledText;
            }
        }
        return sourceEnded ? how.textOf(source) : std::string_view();
    }
};

// Each way in which the two end, in each order. A cancellation before the attachment stands for one inside the
// continuation. When it runs, and when it is destroyed, no lock is held and its result is pending. It runs and is
// destroyed inside the call that makes it due. Its result keeps no memory of its sources.
TEST_P(Continuation, FollowsItsModelInEveryOrder) {
    const End others[] = {{"claimed by other code", ends[0].end, alreadyReturned},
                          {"invalid", [](auto&) {}, invalidText}};
    for (const End* sourceEnd : {&ends[0], &ends[1], &ends[2], &ends[3], &others[0], &others[1]})
        for (const End& otherEnd : ends) {
            std::string order = "acos";
            do {
                SCOPED_TRACE(order + ": source " + sourceEnd->name + ", other " + otherEnd.name);
                const auto memory = std::make_shared<int>();
                const auto make = [&] { return std::allocate_shared<IntState>(Watched<IntState>(memory)); };
                std::shared_ptr<IntState> source = sourceEnd == &others[1] ? nullptr : make();
                std::shared_ptr<IntState> other = make();
                Future<int> used = sourceEnd == &others[0] ? then(Future<int>(source), get) : makeReadyFuture(1);
                const bool claimed = !source || source->continuation;
                Model model{how, *sourceEnd, otherEnd, claimed, order.find('c') < order.find('a')};
                Future<int> sourceFuture(source);
                Future<int> otherFuture = then(then(Future<int>(other), get), get);
                Future<int> result(nullptr);
                std::string log;
                bool cancelled = false;
                const auto logs = [&](char event) {
                    for (IntState* state : {source.get(), other.get()})
                        EXPECT_TRUE(!state || std::unique_lock(state->mutex, std::try_to_lock)) << "a lock is held";
                    EXPECT_TRUE(cancelled || !result.valid() || isPending(result)) << "the result has ended";
                    log += event;
                };
                const auto runs = [&] {
                    logs('r');
                    if (model.cancelsInside && result.valid()) {
                        EXPECT_TRUE(cancelled = cancel(result));
                    }
                };
                const auto destroyed = [&] {
                    EXPECT_FALSE(log.find('r') == log.npos && result.valid() && cancel(result)) << "it is under way";
                    logs('d');
                };
                std::string refusal;
                for (const char event : order) {
                    log += event;
                    if (event == 'a')
                        refusal = outcomeOf([&] {
                            result =
                                how.link(std::move(sourceFuture), std::move(otherFuture), {runs, atEnd(destroyed)});
                            return 0;
                        });
                    if (event == 'c' && result.valid()) {
                        cancelled = how.isCoroutine;
                        EXPECT_EQ(cancel(result), !model.ended);
                        EXPECT_FALSE(cancel(result));
                    }
                    if (event == 's') {
                        EXPECT_EQ(source && source->status == Cancelled, model.sourceCancelled);
                        sourceEnd->end(source);
                    }
                    if (event == 'o') {
                        EXPECT_EQ(other->status == Cancelled, model.otherCancelled);
                        otherEnd.end(other);
                    }
                    model.happens(event);
                }
                EXPECT_EQ(log, model.log);
                EXPECT_EQ(sourceFuture.valid(), source && !result.valid());
                source = other = nullptr;
                sourceFuture = Future<int>(nullptr);
                EXPECT_EQ(memory.use_count(), 1);
                EXPECT_EQ(result.valid() ? taken(result) : refusal, model.text);
                EXPECT_EQ(taken(used), "1");
            } while (std::next_permutation(order.begin(), order.end()));
        }
}

TEST_P(Continuation, MayDropTheLastReferences) {
    auto source = std::make_unique<Promise<int>>();
    auto other = std::make_unique<Promise<int>>();
    Future<int> result(nullptr);
    const auto drops = [&] {
        result = Future<int>(nullptr);
        source.reset();
        other.reset();
    };
    result = how.link(source->future(), other->future(), {drops});
    source->setValue(1);
    if (other)
        other->setValue(0);
    EXPECT_FALSE(source);
}

TEST_P(Continuation, ChainsToAnyLength) {
    onSmallStack([this] {
        for (const bool pending : {false, true})
            for (const End* end : {&ends[0], &ends[2], &ends[3], static_cast<const End*>(nullptr)}) {
                SCOPED_TRACE(testing::Message() << (end ? end->name : "cancelled at its tail") << ' ' << pending);
                auto head = std::make_shared<IntState>();
                std::vector<Promise<int>> others(manyLinks);
                Future<int> tail(head);
                for (const Promise<int>& other : others)
                    tail = how.link(std::move(tail), pending ? other.future() : ready(0), {});
                if (!end) {
                    EXPECT_TRUE(cancel(tail));
                    EXPECT_EQ(head->status == Cancelled, !pending || how.needsSource);
                }
                for (; !others.empty(); others.pop_back())
                    others.back().setValue(0);
                if (end)
                    end->end(head);
                EXPECT_EQ(taken(tail), end ? how.textOf(*end) : cancelledText);
            }
    });
}

/// What get() gives, or -1; the text of what it throws is another thread's.
int valueOf(Future<int>& future) {
    try {
        return future.get();
    } catch (const std::runtime_error&) {
        return -1;
    }
}

// On five threads, its source ends or stays pending, the other ends, two cancel its result, and one waits for that. In
// some rounds the last one attaches it first, and nobody cancels. The result ends once. By then, what was captured is
// destroyed unless the continuation still runs. A cancelled result leaves nothing pending for which it waited.
TEST_P(Continuation, RacesWithItsSourcesAndItsCancellation) {
    const std::function<void(std::shared_ptr<IntState>&)> by[] = {ends[0].end, ends[2].end, ends[3].end, [](auto&) {}};
    std::shared_ptr<IntState> state;
    Future<int> source(nullptr);
    Promise<int> other;
    Future<int> result(nullptr);
    std::atomic<int> cancelled{0};
    std::atomic<bool> ran{false};
    std::atomic<bool> alive{false};
    bool aliveAtTheEnd = false;
    int got = 0;
    const auto isAttached = [](int round) { return round % 4 == 3 || round % 8 < 4; };
    const auto attach = [&] {
        result = how.link(std::move(source), other.future(), {[&] { ran = true; }, atEnd([&] { alive = false; })});
    };
    const auto cancels = [&](int round) { cancelled += isAttached(round) && cancel(result); };
    race(rounds(4000) + 1,
         {[&](int round) { by[round % 4](state); }, [&](int) { other.setValue(0); }, cancels, cancels,
          [&](int round) {
              if (!isAttached(round))
                  attach();
              got = valueOf(result);
              aliveAtTheEnd = alive;
          }},
         [&](int round) {
             if (round > 0) {
                 EXPECT_LE(cancelled, 1);
                 EXPECT_EQ(got, cancelled || (round - 1) % 4 ? -1 : 1);
                 EXPECT_TRUE(!aliveAtTheEnd || (cancelled && (ran || how.isCoroutine)));
                 EXPECT_TRUE(round % 4 || other.cancelled() || state->status == Cancelled);
             }
             source = Future<int>(state = std::make_shared<IntState>());
             other = Promise<int>();
             cancelled = 0;
             ran = false;
             alive = true;
             if (isAttached(round))
                 attach();
         });
}

} // namespace
} // namespace connector::test
