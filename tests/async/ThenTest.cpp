#include "support/Allocations.h"
#include "support/Futures.h"
#include "support/Rounds.h"

#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>
#include <connector/async/WhenAll.h>

#include <gmock/gmock.h>

#include <thread>

namespace connector::test {
namespace {

TEST(Then, RunsOnTheResolvingThreadOrAtOnce) {
    for (const bool endsFirst : {true, false})
        for (const End& expected : ends) {
            SCOPED_TRACE(expected.name);
            auto state = std::make_shared<IntState>();
            Future<int> future(state);
            std::thread::id endedOn;
            std::thread::id ranOn;
            int runs = 0;
            const auto end = [&] {
                std::thread([&] { endedOn = std::this_thread::get_id(), expected.end(state); }).join();
            };
            if (endsFirst)
                end();
            Future<int> result = then(std::move(future), [&](Future<int>&& resolved) {
                ++runs;
                ranOn = std::this_thread::get_id();
                return resolved.get();
            });
            EXPECT_FALSE(future.valid()); // NOLINT(bugprone-use-after-move): what is promised of it
            if (!endsFirst)
                end();
            EXPECT_EQ(taken(result), expected.text);
            EXPECT_EQ(runs, expected.text == cancelledText ? 0 : 1);
            if (runs > 0) {
                EXPECT_EQ(ranOn, endsFirst ? std::this_thread::get_id() : endedOn);
            }
        }
}

// The consumer relies on more than the value: what the function captured is gone, too.
TEST(Then, RacesWithTheResolution) {
    Promise<int> promise;
    Future<int> future(nullptr);
    int sum = 0;
    race(rounds(500),
         {[&](int) { promise.setValue(1); },
          [&](int round) {
              int alive = 1;
              auto gone = atEnd([&] { --alive; });
              if (round % 2)
                  sum += then(std::move(future), [gone = std::move(gone)](Future<int> it) { return it.get(); }).get();
              else
                  sum += then(std::move(future), [gone = std::move(gone)](Future<int> it) { return it; }).get();
              EXPECT_EQ(alive, 0);
          }},
         [&](int) { future = (promise = Promise<int>()).future(); });
    EXPECT_EQ(sum, rounds(500));
}

TEST(Then, IsRefusedWhereTheValueIsSpokenFor) {
    const auto state = std::make_shared<IntState>();
    then(Future<int>(state), get);
    const auto asked = std::make_shared<IntState>();
    asked->setValue(1);
    Future<int>(asked).get();
    const std::pair<std::shared_ptr<IntState>, const char*> cases[] = {
        {state, alreadyReturned}, {asked, alreadyReturned}, {nullptr, invalidText}};
    for (const auto& [refusing, text] : cases) {
        Future<int> future(refusing);
        EXPECT_THAT([&] { then(std::move(future), get); }, testing::ThrowsMessage<std::runtime_error>(text));
        EXPECT_EQ(future.valid(), refusing != nullptr); // NOLINT(bugprone-use-after-move): refused, it is still ours
    }
}

TEST(Then, UnwrapsTheFutureThatTheFunctionReturns) {
    for (const bool endsFirst : {true, false})
        for (const End& expected : ends) {
            SCOPED_TRACE(expected.name);
            Promise<int> promise;
            auto inner = std::make_shared<IntState>();
            auto returnsInner = [future = Future<int>(inner)](Future<int>) mutable { return std::move(future); };
            Future<int> result = then(then(promise.future(), std::move(returnsInner)), get);
            if (endsFirst)
                expected.end(inner);
            promise.setValue(0);
            if (!endsFirst)
                expected.end(inner);
            EXPECT_EQ(taken(result), expected.text);
        }

    const auto spokenFor = std::make_shared<IntState>();
    then(Future<int>(spokenFor), get);
    const auto gives = [](const std::function<Future<int>(Future<int>)>& function) {
        return taken(then(makeReadyFuture(0), function));
    };
    EXPECT_EQ(gives([&](Future<int>) { return Future<int>(spokenFor); }), alreadyReturned);
    EXPECT_EQ(gives([](Future<int>) { return Future<int>(nullptr); }), invalidText);
    EXPECT_EQ(gives([](Future<int>) -> Future<int> { throw std::logic_error("outer"); }), "outer");
}

// Whatever becomes of the future, what the function captured is destroyed with no mutex held, before the result ends.
TEST(Then, LetsWhatWasCapturedAskTheSameFuture) {
    const char* const fromSource[] = {alreadyReturned, alreadyReturned, cancelledText, "gone", cancelledText};
    for (std::size_t index = 0; index < std::size(fromSource); ++index) {
        SCOPED_TRACE(index);
        auto state = std::make_shared<IntState>();
        const std::weak_ptr<IntState> source = state;
        Future<int> result(nullptr);
        std::vector<std::string> got;
        auto asks = atEnd([&] {
            const auto alive = source.lock();
            got.push_back(alive ? taken(Future<int>(alive)) : "gone");
            got.push_back(outcomeOf([&] { return getFor(result, std::chrono::seconds(0)).value_or(-1); }));
            EXPECT_FALSE(index > 1 && cancel(result)) << "that is under way";
        });
        result = then(Future<int>(state), [asks = std::move(asks)](Future<int> resolved) { return resolved.get(); });
        if (index < std::size(ends))
            ends[index].end(state);
        else
            EXPECT_TRUE(cancel(result));
        EXPECT_THAT(got, testing::ElementsAre(fromSource[index], "-1"));
        EXPECT_EQ(taken(result), index < std::size(ends) ? ends[index].text : cancelledText);
    }
}

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

TEST(Then, KeepsNoMemoryOfASourceThatHasEnded) {
    for (const End& expected : ends) {
        const auto alive = std::make_shared<int>();
        std::shared_ptr<IntState> state = std::allocate_shared<IntState>(Watched<IntState>(alive));
        Future<int> result = then(Future<int>(state), get);
        expected.end(state);
        state.reset();
        EXPECT_EQ(alive.use_count(), 1) << expected.name;
        EXPECT_EQ(taken(result), expected.text);
    }
}

TEST(Then, MayDropTheLastReferences) {
    auto promise = std::make_unique<Promise<int>>();
    std::string got;
    const auto drops = [&](Future<int> future) { return promise.reset(), future.get(); };
    Future<std::monostate> result = then(then(promise->future(), drops), [&](Future<int> future) {
        result = Future<std::monostate>(nullptr);
        got = taken(future);
    });
    promise->setValue(4);
    EXPECT_EQ(got, "4");
}

using Futures = std::vector<Future<int>>;

/// Waits for `future` and for one that is ready, and gives the former.
Future<int> withAnother(Future<int> future) {
    Futures both;
    both.push_back(makeReadyFuture(0));
    both.push_back(std::move(future));
    return then(whenAll(std::move(both)), [](Future<Futures> all) { return std::move(all.get().back()); });
}

TEST(Then, ChainsToAnyLength) {
    expectAnyLength([](Future<int> previous) { return then(std::move(previous), get); }, cancelledText);
}

// Each function has run; its result waits for the previous one because that was returned.
TEST(Then, ReturnsFuturesAndChainsToAnyLength) {
    const auto link = [](Future<int> previous) {
        return then(makeReadyFuture(0), [&](Future<int>) { return std::move(previous); });
    };
    expectAnyLength(link, cancelledText);
}

TEST(WhenAll, ChainsToAnyLength) {
    expectAnyLength(withAnother, invalidText);
}

TEST(Then, LosesNothingWhenMemoryRunsOut) {
    for (const bool unwraps : {false, true}) {
        bool failed = true;
        for (std::size_t successes = 0; failed; ++successes) {
            const auto state = std::make_shared<IntState>();
            Future<int> future(state);
            Future<int> inner = makeReadyFuture(2);
            Future<int> result(nullptr);
            const auto returnsInner = [&](Future<int>) { return std::move(inner); };
            {
                const AllocationFailure failure(successes, false);
                try {
                    result = unwraps ? then(std::move(future), returnsInner) : then(std::move(future), get);
                } catch (const std::bad_alloc&) {
                }
                failed = AllocationFailure::struck();
            }
            {
                // The cell of the value is the producer's; nothing after it needs memory.
                const AllocationFailure failure(1, true);
                state->setValue(1);
            }
            EXPECT_EQ(taken(failed ? future : result), // NOLINT(bugprone-use-after-move)
                      unwraps && !failed ? "2" : "1"); // NOLINT(bugprone-use-after-move)
        }
    }
}

TEST(WhenAll, GivesBackEveryFutureInItsOrder) {
    for (const bool endFirst : {true, false}) {
        std::vector<std::shared_ptr<IntState>> states;
        Futures futures;
        for (std::size_t index = 0; index < std::size(ends); ++index)
            futures.emplace_back(states.emplace_back(std::make_shared<IntState>()));
        const auto end = [&] {
            for (std::size_t index = std::size(ends); index-- > 0;)
                ends[index].end(states[index]);
        };
        const auto refused = std::make_shared<IntState>();
        then(Future<int>(refused), get);
        const auto asked = std::make_shared<IntState>();
        asked->setValue(1);
        Future<int>(asked).get();
        for (const auto& state : {refused, asked, states[0], std::shared_ptr<IntState>()})
            futures.emplace_back(state);
        if (endFirst)
            end();
        std::vector<std::string> got;
        then(whenAll(std::move(futures)), [&](Future<Futures> all) {
            for (Future<int>& future : all.get())
                got.push_back(taken(future));
        });
        EXPECT_EQ(got.empty(), !endFirst);
        if (!endFirst)
            end();
        EXPECT_THAT(got, testing::ElementsAre("1", "boom", cancelledText, invalidText, alreadyReturned, alreadyReturned,
                                              alreadyReturned, invalidText));
    }
    EXPECT_TRUE(whenAll(Futures()).get().empty());
}

// It would own itself, by what waits for the future that it can't wait for.
TEST(WhenAll, IsFreedWithItsLastProducer) {
    auto state = std::make_shared<IntState>();
    const std::weak_ptr<IntState> freed = state;
    Futures futures;
    futures.emplace_back(state);
    futures.emplace_back(state);
    Future<Futures> result = whenAll(std::move(futures));
    state.reset();
    EXPECT_TRUE(freed.expired());
    EXPECT_EQ(result.get().size(), 2u);
}

TEST(WhenAll, RacesWithTheResolutions) {
    std::vector<Promise<int>> promises(2);
    std::vector<Future<int>> futures;
    int sum = 0;
    race(rounds(300),
         {[&](int) { promises[0].setValue(1); }, [&](int) { promises[1].setValue(2); },
          [&](int) {
              for (Future<int>& future : whenAll(std::move(futures)).get())
                  sum += future.get();
          }},
         [&](int) {
             for (Promise<int>& promise : promises)
                 futures.push_back((promise = Promise<int>()).future());
         });
    EXPECT_EQ(sum, rounds(300) * 3);
}

} // namespace
} // namespace connector::test
