#include "support/Futures.h"
#include "support/Rounds.h"

#include <connector/async/Then.h>
#include <connector/async/WhenAll.h>

#include <gmock/gmock.h>

#include <atomic>

namespace connector::test {
namespace {

TEST(Cancel, DoesSoOnlyBeforeTheResolution) {
    for (const bool cancelledFirst : {true, false}) {
        Promise<int> promise;
        Future<int> future = promise.future();
        detail::FutureAccess::state(future)->continuationFlag = true; // is anybody's, and says nothing
        if (!cancelledFirst)
            promise.setValue(1);
        EXPECT_EQ(cancel(future), cancelledFirst);
        EXPECT_FALSE(cancel(future));
        EXPECT_EQ(promise.cancelled(), cancelledFirst);
        if (cancelledFirst)
            promise.setValue(1);
        EXPECT_EQ(taken(future), cancelledFirst ? cancelledText : "1");
    }
    Future<int> none(nullptr);
    EXPECT_THAT([&] { cancel(none); }, testing::ThrowsMessage<std::runtime_error>(invalidText));
}

TEST(Cancel, ReachesWhatTheResultWaitsForAtThatTime) {
    Promise<int> outer;
    Promise<int> inner;
    Future<int> result(nullptr);
    const auto returnsInner = [&](Future<int>) { return inner.future(); };
    const auto cancelsFirst = [&](Future<int>) { return cancel(result), inner.future(); };
    const auto dropsFirst = [&](Future<int> future) {
        future = Future<int>(nullptr);
        EXPECT_TRUE(cancel(result));
        return inner.future();
    };
    const auto resolved = [&] { outer.setValue(1); };
    const struct {
        const char* name;
        std::function<void()> make;
        bool outerCancelled;
        bool innerCancelled;
    } cases[] = {
        {"before the function", [&] { result = then(outer.future(), returnsInner); }, true, false},
        {"after it", [&] { result = then(outer.future(), returnsInner), resolved(); }, false, true},
        {"inside it", [&] { result = then(outer.future(), cancelsFirst), resolved(); }, false, true},
        {"inside it, the last to know its source",
         [&] { result = then(then(then(outer.future(), get), get), dropsFirst), resolved(); }, false, true},
        {"through a chain", [&] { result = then(then(then(outer.future(), get), get), get); }, true, false},
        {"through whenAll",
         [&] {
             std::vector<Future<int>> futures;
             futures.push_back(then(outer.future(), returnsInner));
             futures.push_back(inner.future());
             result = then(whenAll(std::move(futures)), [](Future<std::vector<Future<int>>>) { return 0; });
         },
         true, true},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        outer = Promise<int>();
        inner = Promise<int>();
        expected.make();
        cancel(result);
        EXPECT_EQ(taken(result), cancelledText);
        EXPECT_EQ(outer.cancelled(), expected.outerCancelled);
        EXPECT_EQ(inner.cancelled(), expected.innerCancelled);
    }
}

// They belong to other code, which still gets its reply.
TEST(Cancel, LeavesRefusedFuturesAlone) {
    Promise<int> others;
    Promise<int> pending;
    Future<int> result(nullptr);
    const std::function<void()> cases[] = {
        [&] {
            std::vector<Future<int>> futures;
            futures.push_back(others.future());
            futures.push_back(pending.future());
            result = then(whenAll(std::move(futures)), [](auto&& all) { return all.get().front().get(); });
            cancel(result);
        },
        [&] {
            result = then(pending.future(), [&](Future<int>) { return cancel(result), others.future(); });
            pending.setValue(1);
        },
    };
    for (const auto& make : cases) {
        others = Promise<int>();
        pending = Promise<int>();
        Future<int> used = then(others.future(), get);
        make();
        EXPECT_EQ(taken(result), cancelledText);
        others.setValue(1);
        EXPECT_EQ(taken(used), "1");
    }
}

TEST(Cancel, KeepsAContinuationOfAnotherKind) {
    struct Foreign : detail::FutureContinuation<int> {
        void invoke(Future<int>&&) override { ADD_FAILURE() << "nothing was resolved"; }
    };
    const auto state = std::make_shared<IntState>();
    state->continuation = std::make_unique<Foreign>();
    Future<int> future(state);
    EXPECT_TRUE(cancel(future));
    EXPECT_TRUE(state->continuation);
}

// Two cancel, one resolves or drops, one waits. One of them ends the result. Unless the function runs after all, what
// it captured is destroyed by the time that the consumer knows.
TEST(Cancel, RacesWithEverythingElse) {
    std::shared_ptr<IntState> state;
    Future<int> result(nullptr);
    std::atomic<int> cancelled{0};
    std::atomic<bool> ran{false};
    std::atomic<bool> alive{false};
    bool aliveAtTheEnd = false;
    std::string got;
    const auto ended = [&](int round) {
        EXPECT_LE(cancelled, 1);
        EXPECT_TRUE(!aliveAtTheEnd || ran);
        EXPECT_TRUE(round == 0 || got == (cancelled || (round % 2 == 0 && !ran) ? cancelledText : "1")) << got;
        cancelled = 0;
        ran = false;
        alive = true;
        result = then(Future<int>(state = std::make_shared<IntState>()),
                      [&, gone = atEnd([&] { alive = false; })](Future<int> it) { return ran = true, it.get(); });
    };
    const auto cancels = [&](int) { cancelled += cancel(result); };
    race(rounds(300),
         {[&](int round) { ends[round % 2 ? 3 : 0].end(state); }, cancels, cancels,
          [&](int) {
              got = taken(result);
              aliveAtTheEnd = alive;
          }},
         ended);
    ended(rounds(300));
}

// Neither is lost between the two: what the function returns is cancelled, or never asked for.
TEST(Cancel, RacesWithTheFunctionThatReturnsAFuture) {
    Promise<int> outer;
    Promise<int> inner;
    Future<int> result(nullptr);
    Barrier both(2);
    race(rounds(300),
         {[&](int) { outer.setValue(1); },
          [&](int) {
              both.wait();
              cancel(result);
          }},
         [&](int round) {
             EXPECT_TRUE(round == 0 || inner.cancelled());
             inner = Promise<int>();
             result = then((outer = Promise<int>()).future(), [&](Future<int>) {
                 Future<int> future = inner.future();
                 both.wait();
                 return future;
             });
         });
}

TEST(Cancel, RacesWithTheAttachment) {
    Promise<int> promise;
    Future<int> source(nullptr);
    race(rounds(300),
         {[&](int) { cancel(source); }, [&](int) { EXPECT_EQ(taken(then(promise.future(), get)), cancelledText); }},
         [&](int) { source = (promise = Promise<int>()).future(); });
}

} // namespace
} // namespace connector::test
