#include "support/Allocations.h"
#include "support/Futures.h"

#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>
#include <connector/async/WhenAll.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>

namespace connector::test {
namespace {

TEST(Promise, EndsItsReplyOnce) {
    const auto throwsError = [](const char* text) { return testing::ThrowsMessage<std::runtime_error>(text); };
    const char* const destroyed = "Promise destroyed before it was resolved.";
    const std::pair<const char*, std::function<void(std::unique_ptr<Promise<int>>&, Future<int>&)>> cases[] = {
        {destroyed, [](auto& promise, auto&) { promise.reset(); }},
        {destroyed, [](auto& promise, auto&) { *promise = Promise<int>(); }},
        {"1",
         [&](auto& promise, auto&) {
             Promise<int>(std::move(*promise)).setValue(1);
             EXPECT_THAT([&] { return promise->cancelled(); }, throwsError("Promise state isn't valid!"));
         }},
        {"2",
         [&](auto& promise, auto&) {
             (*promise = std::move(*promise)).setValue(2);
             EXPECT_THAT([&] { promise->setValue(3); }, throwsError("Promise already resolved."));
         }},
        {cancelledText,
         [](auto& promise, auto&) {
             const AllocationFailure failure(0, true);
             promise.reset();
         }},
        {cancelledText,
         [](auto& promise, auto& future) {
             EXPECT_FALSE(promise->cancelled());
             EXPECT_TRUE(cancel(future));
             EXPECT_TRUE(promise->cancelled());
             promise->setValue(1);
         }},
    };
    for (const auto& [text, end] : cases) {
        auto promise = std::make_unique<Promise<int>>();
        Future<int> future = promise->future();
        end(promise, future);
        EXPECT_FALSE(cancel(future)) << text;
        EXPECT_EQ(taken(future), text);
    }
    Future<int> none(nullptr);
    EXPECT_THAT([&] { cancel(none); }, throwsError(invalidText));
}

TEST(Promise, KeepsAContinuationOfAnotherKindWhenCancelled) {
    struct Foreign : detail::FutureContinuation<int> {
        void invoke(Future<int>&&) override { ADD_FAILURE() << "nothing was resolved"; }
    };
    const auto state = std::make_shared<IntState>();
    state->continuation = std::make_unique<Foreign>();
    state->continuationFlag = true; // means nothing to cancel()
    Future<int> future(state);
    EXPECT_TRUE(cancel(future));
    EXPECT_TRUE(state->continuation);
}

/// With more alignment than its operators give.
struct alignas(64) OwnMemory {
    static void* operator new(std::size_t) { throw std::bad_alloc(); }
    static void operator delete(void*) { std::abort(); }
    std::uintptr_t place() const { return reinterpret_cast<std::uintptr_t>(this); }
};

// Its place is allocated before there is a value, so they can't be used in pairs.
TEST(Promise, NeverUsesOperatorsOfTheValue) {
    Promise<OwnMemory> promise;
    std::vector<Future<OwnMemory>> futures;
    futures.push_back(then(promise.future(), [](Future<OwnMemory> future) { return future.get(); }));
    futures.push_back(makeReadyFuture(OwnMemory()));
    Future<std::vector<Future<OwnMemory>>> all = whenAll(std::move(futures));
    promise.setValue(OwnMemory());
    for (Future<OwnMemory>& future : all.get())
        EXPECT_EQ(getFor(future, std::chrono::seconds(0))->place() % 64, 0u);
}

} // namespace
} // namespace connector::test
