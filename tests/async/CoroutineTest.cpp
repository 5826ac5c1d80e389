#include "support/Allocations.h"
#include "support/Futures.h"
#include "support/Rounds.h"

#include <connector/async/Coroutine.h>
#include <connector/async/Then.h>

#include <gmock/gmock.h>

#include <optional>
#include <thread>

namespace connector::test {
namespace {

Future<int> pass(Future<int> future) {
    co_return co_await std::move(future);
}

/// A coroutine of another type, which knows nothing of futures.
struct Detached {
    struct promise_type {
        Detached get_return_object() { return {}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { ADD_FAILURE(); }
    };
};

Detached await(Future<int> future, std::string& got) {
    try {
        got = std::to_string(co_await std::move(future));
    } catch (const std::exception& error) {
        got = error.what();
    }
}

TEST(Coroutine, GivesOrThrowsWhatTheFutureDoes) {
    for (const End& expected : ends)
        for (const bool endsFirst : {true, false}) {
            SCOPED_TRACE(expected.name);
            std::string ofDetached;
            std::optional<Future<int>> result;
            for (const bool detached : {true, false}) {
                auto state = std::make_shared<IntState>();
                Future<int> future(state);
                if (endsFirst)
                    expected.end(state);
                if (detached)
                    await(std::move(future), ofDetached);
                else
                    result = pass(std::move(future));
                if (!endsFirst)
                    expected.end(state);
            }
            const std::string_view text = &expected == &ends[3] ? invalidText : expected.text;
            EXPECT_EQ(taken(*result), text);
            EXPECT_EQ(ofDetached, text);
        }
    const auto refused = std::make_shared<IntState>();
    then(Future<int>(refused), get);
    EXPECT_EQ(taken(pass(Future<int>(refused))), alreadyReturned);
    EXPECT_EQ(taken(pass(Future<int>(nullptr))), invalidText);
}

Future<std::thread::id> resumedOn(Future<int> future, std::shared_ptr<void>, std::function<void()> dies) {
    const auto local = atEnd(std::move(dies));
    co_await future;
    co_return std::this_thread::get_id();
}

// The consumer relies on more than the value: what the coroutine held is gone, too.
TEST(Coroutine, RacesWithTheResolution) {
    Promise<int> promise;
    Future<int> future(nullptr);
    std::thread::id resolving;
    race(rounds(500),
         {[&](int) {
              resolving = std::this_thread::get_id();
              promise.setValue(1);
          },
          [&](int) {
              int alive = 2;
              const auto dies = [&] { --alive; };
              const std::thread::id resumed = resumedOn(std::move(future), atEnd(dies), dies).get();
              EXPECT_EQ(alive, 0);
              EXPECT_TRUE(resumed == resolving || resumed == std::this_thread::get_id());
          }},
         [&](int) { future = (promise = Promise<int>()).future(); });
}

/// An awaitable of another kind.
struct Gate {
    std::coroutine_handle<> waiting;
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> coroutine) noexcept { waiting = coroutine; }
    void await_resume() const noexcept {}
};

Future<int> throughGate(const Promise<int>& promise, Gate& gate) {
    const int value = co_await promise.future();
    co_await gate;
    co_return value;
}

// Resumed by the gate, it is no longer run by the call that resolved what it awaited first.
TEST(Coroutine, MayAwaitOtherThings) {
    Promise<int> promise;
    Gate gate;
    Future<int> result = then(throughGate(promise, gate), get);
    promise.setValue(1);
    gate.waiting.resume();
    EXPECT_EQ(taken(result), "1");
}

Future<int> firstOr(Future<int> first, Future<int> second) {
    try {
        co_return co_await first;
    } catch (const std::runtime_error&) {
    }
    co_return co_await second;
}

TEST(Coroutine, PassesItsCancellationOnForGood) {
    Promise<int> first;
    Promise<int> second;
    Future<int> result = firstOr(first.future(), second.future());
    EXPECT_TRUE(cancel(result));
    EXPECT_TRUE(first.cancelled() && second.cancelled());
    EXPECT_EQ(taken(result), cancelledText);

    // A refused future isn't its own to cancel.
    first = Promise<int>();
    second = Promise<int>();
    Future<int> others = then(second.future(), get);
    result = firstOr(first.future(), second.future());
    cancel(result);
    EXPECT_TRUE(first.cancelled() && !second.cancelled());

    // That of a source is an exception like any other.
    Future<int> source = (first = Promise<int>()).future();
    result = firstOr(first.future(), makeReadyFuture(2));
    cancel(source);
    EXPECT_EQ(taken(result), "2");
}

TEST(Coroutine, RacesWithItsCancellation) {
    Promise<int> promise;
    Future<int> result(nullptr);
    bool cancelled = false;
    race(rounds(300), {[&](int) { promise.setValue(1); }, [&](int) { cancelled = cancel(result); }}, [&](int round) {
        EXPECT_TRUE(round == 0 || taken(result) == (cancelled ? cancelledText : "1"));
        result = pass((promise = Promise<int>()).future());
    });
}

/// Suspends only to find that it needn't.
struct Ready {
    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<>) const noexcept { return false; }
    void await_resume() const noexcept {}
};

Future<int> passLater(Future<int> future) {
    const int value = co_await std::move(future);
    co_await Ready();
    co_return value;
}

TEST(Coroutine, ChainsToAnyLength) {
    expectAnyLength(passLater, invalidText, manyLinks / 10);
}

// Each coroutine awaits another future when its first is cancelled, and has that one cancelled, too.
TEST(Coroutine, PassesItsCancellationOnToAnyLength) {
    onSmallStack([] {
        Promise<int> head;
        std::vector<Promise<int>> first(manyLinks / 10);
        Future<int> tail = head.future();
        for (const Promise<int>& promise : first)
            tail = firstOr(promise.future(), std::move(tail));
        cancel(tail);
        EXPECT_TRUE(first.front().cancelled() && head.cancelled());
    });
}

/// Awaits what may be pending, by turns with what is ready, and then what nobody can resolve. Counts what threw.
Future<int> loop(const std::vector<Promise<int>>& promises) {
    int thrown = 0;
    for (const bool orphaned : {false, true})
        for (const Promise<int>& promise : promises)
            try {
                Future<int> future = orphaned ? Future<int>(std::make_shared<IntState>()) : promise.future();
                co_await future;
                co_await Ready();
                co_await makeReadyFuture(1);
            } catch (const std::runtime_error&) {
                ++thrown;
            }
    co_return thrown;
}

TEST(Coroutine, LoopsToAnyLength) {
    onSmallStack([] {
        for (const char* how : {"resolved", "dropped", "cancelled"}) {
            std::vector<Promise<int>> promises(manyLinks);
            Future<int> result = loop(promises);
            if (how == std::string_view("cancelled"))
                cancel(result);
            for (Promise<int>& promise : promises)
                how == std::string_view("resolved") ? promise.setValue(1) : void(promise = Promise<int>());
            EXPECT_EQ(taken(result), how == std::string_view("resolved")  ? std::to_string(manyLinks)
                                     : how == std::string_view("dropped") ? std::to_string(2 * manyLinks)
                                                                          : cancelledText);
        }
    });
}

Future<int> retry(Future<int> future) {
    try {
        const AllocationFailure failure(0, true);
        co_return co_await future;
    } catch (const std::bad_alloc&) {
    }
    co_return co_await future;
}

TEST(Coroutine, StillHasTheFutureWhenMemoryRunsOut) {
    Promise<int> promise;
    Future<int> result = retry(promise.future());
    promise.setValue(1);
    EXPECT_EQ(taken(result), "1");
}

} // namespace
} // namespace connector::test
