#include "support/Allocations.h"
#include "support/Futures.h"
#include "support/Rounds.h"

#include <connector/async/After.h>
#include <connector/async/Collect.h>
#include <connector/async/Ready.h>
#include <connector/async/Retry.h>
#include <connector/async/ThenError.h>
#include <connector/async/TimeLimit.h>
#include <connector/async/Via.h>
#include <connector/async/WhenAll.h>
#include <connector/async/WhenAny.h>
#include <connector/async/Window.h>
#include <connector/async/Within.h>

#include <random>
#include <set>

namespace {
thread_local int yields = 0;
} // namespace

// In place of the system's.
extern "C" int sched_yield() noexcept {
    return ++yields, static_cast<int>(syscall(SYS_sched_yield));
}

namespace connector::test {
namespace {

using namespace std::chrono_literals;
using F = Future<int>;
using Futures = std::vector<F>;

/// What the future gives, or "-1" if it is still pending after a time that no test takes.
std::string ended(F& future) {
    return outcomeOf([&] { return getFor(future, 20s).value_or(-1); });
}

std::mutex tasksMutex;
std::vector<std::function<void()>> tasks;
const auto later = [](auto task) {
    const std::lock_guard<std::mutex> lock(tasksMutex);
    tasks.emplace_back(std::move(task));
};
void runTasks() {
    for (std::unique_lock<std::mutex> lock(tasksMutex); !tasks.empty(); lock.lock()) {
        const std::function<void()> task = std::move(tasks.back());
        tasks.pop_back();
        lock.unlock();
        task();
    }
}
// No exception is released by another thread than its own: the thread sanitizer doesn't see how they are counted.
std::vector<std::exception_ptr> exceptions;
const std::exception_ptr failure = std::make_exception_ptr(std::logic_error("x"));
void fail() {
    std::rethrow_exception(failure);
}
int take(F future) try { return future.get(); } catch (...) {
    const std::lock_guard<std::mutex> lock(tasksMutex);
    exceptions.push_back(std::current_exception());
    throw;
}

const auto inside = [](const auto& task) { task(); };
const auto twice = [](const auto& task) { (void(task()), task()); };
const auto refuses = [](const auto& /*task*/) { fail(); };
const auto drops = [](const auto& /*task*/) {};
const auto runsAndThrows = [](const auto& task) { (void(task()), fail()); };

Futures listOf(F&& future, F&& other) {
    Futures list;
    list.push_back(std::move(future));
    list.push_back(std::move(other));
    return list;
}
struct First {
    int operator()(std::tuple<F, F> all) { return take(std::move(std::get<0>(all))); }
    int operator()(WhenAnyResult<int> any) { return take(std::move(any.futures[any.index % any.futures.size()])); }
    int operator()(const std::vector<int>& values) { return values.front(); }
};
std::atomic<int> runs{0};
int counted(int value) {
    return ++runs, value;
}
const auto seven = [](auto&) { return counted(7); };
const RetryPolicy once{1, 1ns, 1ns, 0, {}};
const auto same = [](F future) { return future; };
template <class Step>
auto by(Step step) {
    return [step](F&& f) { return F(std::move(f) | Step(step)); };
}
template <class Executor>
auto on(Executor executor) {
    return [executor](F&& f) { return then(std::move(f), executor, [](F it) { return counted(0), it.get(); }); };
}

/// An operation, and what is expected for each of `ends`: the first letter of the result's text, - for a cancellation,
/// or ! for a future that came back cancelled or lost; then how often its function is called.
struct Operation {
    std::string name;
    std::function<F(F&&)> attach;
    std::string expected;
    bool keepsFuture = false; ///< with its caller, after std::bad_alloc; the function doesn't allocate
};
const Operation operations[] = {
    {"thenValue", by(thenValue(counted)), "1b-- 1000", true},
    {"thenValue, future", by(thenValue([](int i) { return ready(counted(i)); })), "1b-- 1000"},
    {"thenError", by(thenError<std::exception>(seven)), "17-- 0100", true},
    {"thenError, future", by(thenError<std::exception>([](auto& e) { return ready(seven(e)); })), "17-- 0100"},
    {"another error", by(thenError<std::bad_alloc>(seven)), "1b-- 0000", true},
    {"ensure", by(ensure([] { ++runs; })), "1b-- 1111", true},
    {"ensure, throws", by(ensure([] { (++runs, fail()); })), "xx-- 1111"},
    {"within", by(within(1h)), "1b-- 0000", true},
    {"via", by(via(inside)), "1b-- 0000", true},
    {"inside", on(inside), "1b-- 1100", true},
    {"twice", on(std::ref(twice)), "1b-- 1100", true},
    {"throws", on(runsAndThrows), "1b-- 1100", true},
    {"drops", on(drops), "---- 0000"},
    {"refuses", on(refuses), "xx-- 1100"},
    {"later", on(later), "1b-- 1100"},
    {"both", [](F&& f) { return std::move(f) | via(later) | via(inside) | thenValue(counted); }, "1b-- 1000"},
    {"all", [](F&& f) { return whenAll(std::move(f), ready(2)) | thenValue(First()); }, "1b!! 0000"},
    {"any", [](F&& f) { return whenAny(listOf(std::move(f), F(nullptr))) | thenValue(First()); }, "1b!! 0000"},
    {"collect", [](F&& f) { return collect(listOf(std::move(f), ready(2))) | thenValue(First()); }, "1b-- 0000"},
    {"window", [](F&& f) { return std::move(window(listOf(std::move(f), ready(1)), 1, same)[0]); }, "1b-- 0000"},
    {"retry", [](F&& f) { return retry(once, [&] { return ++runs, std::move(f); }); }, "1b-- 1111"},
};

/// The operations that pass a value on, in turn.
F inTurn(F&& future) {
    static std::size_t next = 0;
    while (operations[next % std::size(operations)].expected[0] != '1')
        ++next;
    return operations[next++ % std::size(operations)].attach(std::move(future));
}

/// Ends a chain of an operation in each way, first, later, or by cancelling its tail.
void expectEnds(const Operation& operation, int links) {
    for (std::size_t index = 0; index < 2 * std::size(ends) + 1; ++index) {
        const std::size_t how = index == 8 ? 2 : index / 2;
        SCOPED_TRACE(operation.name + ", " + ends[how].name + " " + std::to_string(index));
        runs = 0;
        auto state = std::make_shared<IntState>();
        F tail(state);
        if (index % 2)
            ends[how].end(state);
        for (int length = 0; length < links; ++length)
            tail = operation.attach(std::move(tail));
        if (index == 8)
            EXPECT_TRUE(cancel(tail) && state->status == detail::FutureStatus::Cancelled);
        else if (index % 2 == 0)
            ends[how].end(state);
        runTasks();
        const char sign = index == 8 ? '-' : operation.expected[how];
        const std::string lost = sign == '!' && how == 3 ? invalidText : cancelledText;
        EXPECT_EQ(ended(tail), sign == '-' || sign == '!' ? lost : sign == 'b' ? "boom" : std::string(1, sign));
        EXPECT_TRUE(links > 1 || runs == operation.expected[5 + how] - '0') << runs;
    }
}

TEST(Composition, GivesTheOutcomeOfEachOperation) {
    const auto claimed = std::make_shared<IntState>();
    then(F(claimed), get);
    for (const Operation& operation : operations) {
        expectEnds(operation, 1);
        for (const auto& refused : {std::pair(claimed, alreadyReturned), {nullptr, invalidText}})
            EXPECT_EQ(outcomeOf([&] { return operation.attach(F(refused.first)).get(); }), refused.second)
                << operation.name;
    }
}

TEST(Composition, ChainsToAnyLength) {
    onSmallStack([] {
        const int links = std::max(manyLinks / 50, 5'000);
        for (const Operation& operation : operations)
            expectEnds(operation, links);
        expectEnds({"in turn", inTurn, "1777"}, links);
    });
}

// The first cell is the producer's. Nothing else needs memory once the operation has returned.
TEST(Composition, LosesNothingWhenMemoryRunsOut) {
    for (const Operation& operation : operations)
        withEachAllocationFailing([&](auto attempt) {
            SCOPED_TRACE(operation.name);
            const auto state = std::make_shared<IntState>();
            F future(state);
            F result(nullptr);
            const std::string got = attempt([&] { result = operation.attach(std::move(future)); });
            if (!operation.keepsFuture)
                return;
            EXPECT_EQ(future.valid(), got == "bad_alloc") << got;
            {
                const AllocationFailure fails(1, true);
                state->setValue(1);
            }
            EXPECT_EQ(ended(future.valid() ? future : result), "1");
        });
}

TEST(Composition, YieldsOnlyForABlockedConsumer) {
    for (const int links : {1, 10, 100})
        for (const bool blocks : {false, true}) {
            Promise<int> head;
            F tail = head.future();
            for (int length = 0; length < links; ++length)
                tail = inTurn(std::move(tail));
            std::thread consumer = startAndAwaitSleep([&] { EXPECT_EQ(blocks ? ended(tail) : "1", "1"); });
            yields = 0;
            head.setValue(1);
            runTasks();
            EXPECT_EQ(yields, blocks ? 1 : 0) << links;
            consumer.join();
        }
}

TEST(Composition, LeavesSeveralFuturesToTheCallerWhenMemoryRunsOut) {
    const auto check = [](auto gather) {
        withEachAllocationFailing([&](auto attempt) {
            const std::shared_ptr<IntState> states[] = {std::make_shared<IntState>(), std::make_shared<IntState>()};
            Futures futures = listOf(F(states[0]), F(states[1]));
            decltype(gather(futures)) result(nullptr);
            const std::string got = attempt([&] { result = gather(futures); });
            EXPECT_EQ(!futures.empty() && futures[0].valid() && futures[1].valid(), got == "bad_alloc") << got;
            const AllocationFailure fails(2, true);
            for (const auto& state : states)
                state->setValue(1);
            EXPECT_TRUE(!result.valid() || getFor(result, 0s));
        });
    };
    check([](Futures& list) { return whenAll(std::move(list)); });
    check([](Futures& list) { return whenAll(std::move(list[0]), std::move(list[1])); });
    check([](Futures& list) { return whenAny(std::move(list), Others::Cancel); });
    check([](Futures& list) { return collect(std::move(list)); });
}

using Promises = std::vector<Promise<int>>;
Futures futuresOf(const Promises& promises) {
    Futures futures;
    for (const Promise<int>& promise : promises)
        futures.push_back(promise.future());
    return futures;
}
std::string cancelledOf(const Promises& promises) {
    std::string flags;
    for (const Promise<int>& promise : promises)
        flags += promise.cancelled() ? 'x' : '-';
    return flags;
}

TEST(Composition, KeepsOrCancelsTheOthers) {
    for (const bool keeps : {false, true}) {
        Promises promises(3);
        Future<WhenAnyResult<int>> any = whenAny(futuresOf(promises), keeps ? Others::Keep : Others::Cancel);
        promises[1].setValue(1);
        EXPECT_EQ(cancelledOf(promises), keeps ? "---" : "x-x");
        promises[2].setValue(2);
        auto [index, futures] = any.get();
        EXPECT_EQ(index, 1U);
        EXPECT_EQ(taken(futures[1]) + taken(futures[2]), keeps ? "12" : std::string("1") + cancelledText);
    }
    for (const End& expected : ends) {
        Promises promises(1);
        auto state = std::make_shared<IntState>();
        Future<std::vector<int>> all = collect(listOf(promises[0].future(), F(state)));
        expected.end(state);
        EXPECT_EQ(promises[0].cancelled(), expected.text != "1");
        promises[0].setValue(2);
        F digits = std::move(all) | thenValue([](auto values) { return values[0] * 10 + values[1]; });
        EXPECT_EQ(ended(digits), expected.text == "1" ? "21" : expected.text);
    }
}

TEST(Composition, BeginsAsManyItemsAsMayBePending) {
    Promises replies(6);
    std::string begun;
    const auto begin = [&](std::size_t item) { return begun += std::to_string(item), replies[item].future(); };
    Futures results = window(std::vector<std::size_t>{0, 1, 2, 3, 4, 5}, 2, begin);
    cancel(results[3]);
    EXPECT_EQ(begun, "01");
    replies[1] = Promise<int>();
    EXPECT_EQ(begun, "012");
    cancel(results[0]);
    EXPECT_EQ(begun + cancelledOf(replies), "0124x-----");
    {
        const AllocationFailure fails(1, true);
        replies[2].setValue(2);
    }
    EXPECT_EQ(begun + ended(results[2]), "012452");
    withEachAllocationFailing([&](auto attempt) {
        bool held = true;
        auto holds = [object = atEnd([&] { held = false; })](F item) { return item; };
        attempt([&] { window(listOf(ready(1), ready(2)), std::size_t(-1), std::move(holds)).clear(); });
        static_cast<void>(decltype(holds)(std::move(holds)));
        EXPECT_FALSE(held);
    });
}

TEST(Composition, TriesAgainUntilItMayNot) {
    int calls = 0;
    RetryPolicy policy{3, 1ns, 1ns, 0, {}};
    const auto replies = [&] { return ++calls < 3 ? failed<int>(std::logic_error(std::to_string(calls))) : ready(3); };
    const auto expect = [&](const char* text, int made) {
        calls = 0;
        F result = retry(policy, replies);
        EXPECT_EQ(ended(result), text);
        EXPECT_EQ(calls, made);
    };
    expect("3", 3);
    policy.attempts = 2;
    expect("2", 2);
    policy.retries = [](const std::exception_ptr&) { return false; };
    expect("1", 1);
    policy = RetryPolicy{3, 1h, 1h, 0, {}};
    bool held = true;
    F result = retry(policy, [replies, object = atEnd([&] { held = false; })] { return replies(); });
    EXPECT_TRUE(cancel(result) && !held);
    EXPECT_EQ(calls, 2);
    policy = RetryPolicy{9, 100ns, 300ns, 0.5, {}};
    for (const auto& [failures, random, pause] : {std::tuple(1, 0., 101), {2, 0., 201}, {3, 0., 301}, {2, 1., 101}})
        EXPECT_EQ(detail::pauseAfter(policy, failures, random).count(), pause);
}

struct Alarm : detail::Timer {
    explicit Alarm(std::function<void()> action) : action(std::move(action)) {}
    void expired() override { action(); }
    std::function<void()> action;
};

TEST(Composition, TimersExpireInTheirOrder) {
    const auto now = detail::Timer::Clock::now();
    std::promise<void> blocks;
    std::promise<void> done;
    Future<std::monostate> late = after(1h);
    detail::Timer::start(std::make_shared<Alarm>([&] { blocks.get_future().wait(); }), now);
    std::string expired;
    std::vector<std::shared_ptr<Alarm>> alarms;
    for (const int time : {5, 2, 8, 1, 9, 3, 7, 4, 6}) {
        alarms.push_back(std::make_shared<Alarm>(
            [&, time] { time == 9 ? done.set_value() : void(expired += std::to_string(time)); }));
        detail::Timer::start(alarms.back(), now + std::chrono::microseconds(time));
    }
    for (const std::size_t stopped : {1U, 6U, 6U})
        alarms[stopped]->stop();
    blocks.set_value();
    done.get_future().wait();
    EXPECT_EQ(expired, "134568");
    EXPECT_TRUE(cancel(late));
}

TEST(Composition, RacesWithTimers) {
    const auto part = [](int round) {
        for (int index = 0; index < 8; ++index) {
            Future<std::monostate> timer = after(std::chrono::microseconds(index * round % 60));
            const bool stopped = index % 2 && cancel(timer);
            EXPECT_EQ(outcomeOf([&] { return getFor(timer, 20s) ? 1 : 0; }), stopped ? cancelledText : "1");
        }
    };
    race(rounds(300), {part, part});
}

using Outcomes = std::set<std::string>; // numbers, f for a failure, - for a cancellation

struct Node {
    F future;
    Outcomes outcomes;
};

/// A random tree of operations, and the model of its outcome. Several are possible where the first end decides.
struct Tree {
    explicit Tree(int seed) : random(static_cast<unsigned>(seed) + 1) {}
    std::size_t upTo(std::size_t last) { return random() / 256 % (last + 1); }
    static bool isValue(const std::string& outcome) { return std::isdigit(outcome[0]); }

    Node grow(std::size_t depth) {
        if (depth == 0 && leaves.empty())
            return {ready(9), {"9"}};
        Node node = depth == 0 ? std::move(leaves.back())
                    : upTo(2)  ? change(grow(depth - 1))
                               : join(grow(depth - 1), grow(upTo(depth - 1)));
        if (depth == 0)
            leaves.pop_back();
        states.push_back(detail::FutureAccess::state(node.future));
        return node;
    }
    Node change(Node node) {
        const Operation& operation = operations[upTo(std::size(operations) - 1)];
        const auto change = [&](const std::string& outcome) {
            const char sign = operation.expected[isValue(outcome) ? 0 : outcome == "f" ? 1 : 3];
            return isValue(outcome) && sign == '1' ? outcome : std::string(1, sign == '-' || sign == '7' ? sign : 'f');
        };
        Node changed{operation.attach(std::move(node.future)), {}};
        for (const std::string& outcome : node.outcomes)
            changed.outcomes.insert(change(outcome));
        if (upTo(9) == 0) {
            changed.future = within(std::move(changed.future), std::chrono::microseconds(upTo(50)));
            changed.outcomes.insert("f");
        }
        return changed;
    }
    Node join(Node one, Node other) {
        const std::size_t which = upTo(2);
        Outcomes outcomes;
        for (const std::string& x : one.outcomes)
            for (const std::string& y : other.outcomes)
                if (which == 0)
                    outcomes.insert({isValue(x) ? x : "f", isValue(y) ? y : "f"});
                else if (which == 1)
                    outcomes.insert({isValue(x) && !isValue(y) ? y : x, isValue(y) ? x : y});
                else
                    outcomes.insert(x == "f" ? y : x);
        Futures both = listOf(std::move(one.future), std::move(other.future));
        if (which == 0)
            return {whenAny(std::move(both), Others(upTo(1))) | thenValue(First()), outcomes};
        if (which == 1)
            return {collect(window(std::move(both), 1 + upTo(1), same)) | thenValue(First()), outcomes};
        auto next = [both = std::move(both), index = 0U]() mutable { return std::move(both[index++]); };
        return {retry(RetryPolicy{2, 1ns, 1ns, 0, {}}, std::move(next)), outcomes};
    }

    std::minstd_rand random;
    std::vector<Node> leaves;
    std::vector<std::weak_ptr<IntState>> states;
};

// One thread makes the tree while the other one ends leaves. All states are freed in the end.
TEST(Composition, RacesInRandomTrees) {
    std::optional<Tree> tree;
    Node root{F(nullptr), {}};
    bool cancelled = false;
    std::vector<std::function<void()>> schedules[2];
    const auto run = [&](std::size_t which) {
        for (const auto& step : schedules[which])
            step();
        schedules[which].clear();
        runTasks();
    };
    const auto make = [&](int round) {
        tree.emplace(round);
        cancelled = false;
        for (std::size_t leaf = 1; leaf <= 6; ++leaf) {
            auto state = leaf % 2 ? std::make_shared<IntState>() : detail::makeProducerState<int>();
            const std::size_t how = tree->upTo(3);
            tree->leaves.push_back({F(state), {how == 0 ? std::to_string(leaf) : how == 1 ? "f" : "-"}});
            const auto end = [state, how, leaf]() mutable {
                how == 0   ? state->setValue(static_cast<int>(leaf))
                : how == 1 ? state->setException(failure)
                           : ends[how].end(state);
                state.reset();
            };
            schedules[tree->upTo(1)].emplace_back(end);
        }
        if (tree->upTo(1))
            schedules[0].insert(schedules[0].begin(), [&] { cancelled = cancel(root.future); });
    };
    const auto check = [&](int round) {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        const auto eventually = [&](auto condition) {
            while (!condition() && std::chrono::steady_clock::now() < deadline)
                runTasks();
            return condition();
        };
        std::string got = "-1";
        const auto ask = [&] { return getFor(root.future, 0s).value_or(-1); };
        EXPECT_TRUE(eventually([&] { return got != "-1" || (got = outcomeOf(ask)) != "-1"; })) << round;
        const detail::FutureStatus status = detail::FutureAccess::state(root.future)->status;
        if (status != detail::FutureStatus::HasValue)
            got = status == detail::FutureStatus::Cancelled ? "-" : "f";
        EXPECT_TRUE(cancelled ? got == "-" : root.outcomes.count(got) == 1) << round << ": " << got;
        root.future = F(nullptr);
        tree->leaves.clear();
        const auto freed = [](const auto& state) { return state.expired(); };
        EXPECT_TRUE(eventually([&] { return std::all_of(tree->states.begin(), tree->states.end(), freed); })) << round;
    };
    const auto build = [&](int) {
        root = tree->grow(1 + tree->upTo(3));
        run(0);
    };
    race(rounds(1'000), {build, [&](int) { run(1); }}, [&](int round) {
        if (round > 0)
            check(round - 1);
        make(round);
    });
    check(rounds(1'000));
}

} // namespace
} // namespace connector::test
