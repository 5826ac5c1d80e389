#include "async/Mechanism.h"
#include "support/Allocations.h"

#include <connector/async/Then.h>
#include <connector/async/WhenAll.h>

#include <gmock/gmock.h>

namespace connector::test {

using Futures = std::vector<Future<int>>;

static Futures both(Future<int>&& first, Future<int>&& second) {
    Futures futures;
    futures.push_back(std::move(first));
    futures.push_back(std::move(second));
    return futures;
}

std::vector<Mechanism> mechanisms() {
    const auto byThen = [](Future<int>&& source, Future<int>&&, Captured captured) {
        return then(std::move(source), [captured = std::move(captured)](Future<int> it) {
            captured.runs();
            return it.get();
        });
    };
    const auto byReturningIt = [](Future<int>&& source, Future<int>&& other, Captured captured) {
        return then(std::move(other), [source = std::move(source), captured = std::move(captured)](auto it) mutable {
            it = Future<int>(nullptr);
            captured.runs();
            return std::move(source);
        });
    };
    const auto byWhenAll = [](Future<int>&& source, Future<int>&& other, Captured captured) {
        return then(whenAll(both(std::move(other), std::move(source))),
                    [captured = std::move(captured)](Future<Futures> all) {
                        captured.runs();
                        return all.get().back().get();
                    });
    };
    return {{"Then", byThen, true, false},
            {"ThenWithAFuture", byReturningIt, false, true},
            {"WhenAll", byWhenAll, true, true}};
}

namespace {

TEST(Then, GivesWhatItsFunctionGives) {
    int runs = 0;
    Future<std::monostate> nothing = then(makeReadyFuture(0), [&](Future<int>) { ++runs; });
    EXPECT_EQ(nothing.get(), std::monostate());
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(taken(then(makeReadyFuture(0), [](Future<int>) -> Future<int> { throw std::logic_error("boom"); })),
              "boom");
}

TEST(Then, LosesNothingWhenMemoryRunsOut) {
    for (const int row : {0, 1, 2})
        withEachAllocationFailing(
            [&](const auto& attempt) {
                SCOPED_TRACE(row);
                const auto state = std::make_shared<IntState>();
                Future<int> source(state);
                Futures futures = both(makeReadyFuture(1), Future<int>(state));
                auto adds = [one = std::make_unique<int>(1)](Future<int> it) { return it.get() + *one; };
                auto gives = [two = makeReadyFuture(2)](Future<int>) mutable { return std::move(two); };
                Future<Futures> all(nullptr);
                Future<int> result(nullptr);
                const auto attach = [&] {
                    if (row == 0)
                        result = then(std::move(source), std::move(adds));
                    else if (row == 1)
                        result = then(std::move(source), std::move(gives));
                    else
                        all = whenAll(std::move(futures));
                };
                if (attempt(attach) != "done")
                    attach();
                if (row == 2)
                    result = then(std::move(all), [](auto it) { return it.get().back().get() + 1; });
                {
                    // The cell of the value is the producer's; nothing after it needs memory.
                    const AllocationFailure failure(1, true);
                    state->setValue(1);
                }
                EXPECT_EQ(taken(result), "2");
            },
            {false});
}

TEST(WhenAll, GivesBackEveryFutureInItsOrder) {
    const auto asked = std::make_shared<IntState>();
    asked->setValue(1);
    Future<int>(asked).get();
    Promise<int> late;
    Futures futures = both(late.future(), makeReadyFuture(2));
    for (const auto& state : {asked, std::shared_ptr<IntState>()})
        futures.emplace_back(state);
    std::vector<std::string> got;
    then(whenAll(std::move(futures)), [&](Future<Futures> all) {
        for (Future<int>& future : all.get())
            got.push_back(taken(future));
    });
    EXPECT_TRUE(futures.empty()); // NOLINT(bugprone-use-after-move): what is promised of it
    late.setValue(1);
    EXPECT_THAT(got, testing::ElementsAre("1", "2", alreadyReturned, invalidText));
    EXPECT_TRUE(whenAll(Futures()).get().empty());
}

TEST(WhenAll, PassesItsCancellationOnToAWholeTree) {
    std::vector<Promise<int>> leaves(8);
    const auto pair = [&](std::size_t first) {
        return then(whenAll(both(leaves[first].future(), leaves[first + 1].future())), [](auto) { return 0; });
    };
    const auto four = [&](std::size_t first) {
        return then(whenAll(both(pair(first), pair(first + 2))), [](auto) { return 0; });
    };
    Future<Futures> root = whenAll(both(four(0), four(4)));
    EXPECT_TRUE(cancel(root));
    for (const Promise<int>& leaf : leaves)
        EXPECT_TRUE(leaf.cancelled());
}

// It would own itself, by what waits for the future that it can't wait for.
TEST(WhenAll, IsFreedWithItsLastProducer) {
    auto state = std::make_shared<IntState>();
    const std::weak_ptr<IntState> freed = state;
    Future<Futures> result = whenAll(both(Future<int>(state), Future<int>(state)));
    state.reset();
    EXPECT_TRUE(freed.expired());
    EXPECT_EQ(result.get().size(), 2u);
}

} // namespace
} // namespace connector::test
