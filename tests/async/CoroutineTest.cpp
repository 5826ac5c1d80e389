#include "async/Mechanism.h"
#include "support/Allocations.h"
#include "support/Rounds.h"

#include <connector/async/Coroutine.h>
#include <connector/async/Ready.h>
#include <connector/async/StopToken.h>
#include <connector/async/Via.h>

namespace connector::test {
namespace {

/// An awaitable of another kind, which either suspends only to find that it needn't, or keeps what waits.
struct Gate {
    std::coroutine_handle<>* waiting = nullptr;
    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> coroutine) const noexcept {
        if (waiting)
            *waiting = coroutine;
        return waiting != nullptr;
    }
    void await_resume() const noexcept {}
};

Future<int> awaitBoth(Future<int> source, Future<int> other, Captured captured) {
    const auto runs = atEnd(captured.runs);
    try {
        co_await other;
    } catch (const std::exception&) {
    }
    co_await Gate();
    co_return co_await std::move(source);
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

TEST(Coroutine, OfAnotherTypeMayAwaitFutures) {
    for (const End& expected : ends)
        for (const bool endsFirst : {true, false}) {
            SCOPED_TRACE(expected.name);
            auto state = std::make_shared<IntState>();
            Future<int> future(state);
            std::string got;
            if (endsFirst)
                expected.end(state);
            await(std::move(future), got);
            if (!endsFirst)
                expected.end(state);
            EXPECT_EQ(got, &expected == &ends[3] ? invalidText : expected.text);
        }
}

Future<int> throughGate(const Promise<int>& promise, Gate gate) {
    const int value = co_await promise.future();
    co_await gate;
    co_return value;
}

// Resumed by the gate, it is no longer run by the call that resolved what it awaited first.
TEST(Coroutine, MayAwaitOtherThings) {
    Promise<int> promise;
    std::coroutine_handle<> waiting;
    std::string got;
    await(throughGate(promise, Gate{&waiting}), got);
    promise.setValue(1);
    waiting.resume();
    EXPECT_EQ(got, "1");
}

/// Awaits what may be pending, by turns with what is ready, and then what nobody can resolve. Counts what threw.
Future<int> loop(const std::vector<Promise<int>>& promises) {
    int thrown = 0;
    for (const bool orphaned : {false, true})
        for (const Promise<int>& promise : promises)
            try {
                Future<int> future = orphaned ? Future<int>(std::make_shared<IntState>()) : promise.future();
                co_await future;
                co_await Gate();
                co_await ready(1);
            } catch (const std::runtime_error&) {
                ++thrown;
            }
    co_return thrown;
}

TEST(Coroutine, LoopsToAnyLength) {
    const std::pair<std::function<void(Promise<int>&)>, std::string> cases[] = {
        {[](auto& promise) { promise.setValue(1); }, std::to_string(manyLinks)},
        {[](auto& promise) { promise = Promise<int>(); }, std::to_string(2 * manyLinks)},
        {nullptr, cancelledText}};
    onSmallStack([&] {
        for (const auto& [end, text] : cases) {
            std::vector<Promise<int>> promises(manyLinks);
            Future<int> result = loop(promises);
            EXPECT_TRUE(end || cancel(result));
            for (Promise<int>& promise : promises)
                if (end)
                    end(promise);
            EXPECT_EQ(taken(result), text);
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

Future<int> untilStopped(Future<int> future, std::stop_token token, std::stop_token& own) {
    own = co_await stopToken();
    co_return co_await(std::move(future) | cancelOn(token));
}

TEST(Coroutine, RacesWithStops) {
    Promise<int> promise;
    std::stop_source stop;
    std::stop_token own;
    Future<int> result = ready(1);
    bool cancelled = false;
    const auto stops = [&](int round) {
        cancelled = round % 2 == 0 && cancel(result);
        if (round % 2)
            stop.request_stop();
    };
    race(rounds(300), {[&](int) { promise.setValue(1); }, stops}, [&](int) {
        const std::string got = taken(result);
        EXPECT_TRUE(cancelled ? got != "1" && own.stop_requested() : got == "1" || stop.stop_requested());
        result = untilStopped((promise = Promise<int>()).future(), (stop = std::stop_source()).get_token(), own);
    });
}

Future<int> onExecutor(std::function<void(std::function<void()>)> executor, int times) {
    for (int done = 1; done < times; ++done)
        co_await via(ready(0), executor);
    co_return co_await via(ready(1), executor);
}

TEST(Coroutine, ContinuesOnExecutorsToAnyLength) {
    EXPECT_EQ(taken(onExecutor([](auto task) { std::thread(std::move(task)).join(); }, 3)), "1");
    EXPECT_EQ(taken(onExecutor([](const auto&) { throw std::runtime_error("refused"); }, 1)), "refused");
    EXPECT_EQ(taken(onExecutor([](const auto&) {}, 1)), cancelledText);
    onSmallStack([] { EXPECT_EQ(taken(onExecutor([](const auto& task) { task(); }, manyLinks / 10)), "1"); });
}

} // namespace

std::vector<Mechanism> mechanisms() {
    const auto byCoroutine = [](Future<int>&& source, Future<int>&& other, Captured captured) {
        return awaitBoth(std::move(source), std::move(other), std::move(captured));
    };
    return {{"CoAwait", byCoroutine, true, true, true}};
}

} // namespace connector::test
