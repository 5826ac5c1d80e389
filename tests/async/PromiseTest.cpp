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

TEST(Promise, NeverLeavesAConsumerWaiting) {
    const char* const destroyed = "Promise destroyed before it was resolved.";
    const std::pair<const char*, std::function<void(std::unique_ptr<Promise<int>>&)>> cases[] = {
        {destroyed, [](auto& promise) { promise.reset(); }},
        {destroyed, [](auto& promise) { *promise = Promise<int>(); }},
        {"1", [](auto& promise) { Promise<int>(std::move(*promise)).setValue(1); }},
        {"2", [](auto& promise) { (*promise = std::move(*promise)).setValue(2); }},
        {cancelledText,
         [](auto& promise) {
             const AllocationFailure failure(0, true);
             promise.reset();
         }},
    };
    for (const auto& [text, end] : cases) {
        auto promise = std::make_unique<Promise<int>>();
        Future<int> future = promise->future();
        end(promise);
        EXPECT_EQ(taken(future), text);
    }
}

TEST(Promise, SaysWhatItCannotDo) {
    Promise<std::unique_ptr<int>> promise;
    promise.setValue(std::make_unique<int>(1));
    auto second = std::make_unique<int>(2);
    EXPECT_THAT([&] { promise.setValue(std::move(second)); },
                testing::ThrowsMessage<std::runtime_error>("Promise already resolved."));
    EXPECT_TRUE(second); // NOLINT(bugprone-use-after-move): refused, it is still ours
    EXPECT_EQ(*promise.future().get(), 1);
    const auto moved = std::move(promise);
    EXPECT_THAT([&] { return promise.cancelled(); }, // NOLINT(bugprone-use-after-move): what is promised of it
                testing::ThrowsMessage<std::runtime_error>("Promise state isn't valid!"));
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
