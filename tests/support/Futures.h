#pragma once

#include <connector/async/Cancel.h>
#include <connector/async/Promise.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace connector::test {

using IntState = detail::SharedFutureState<int>;

constexpr const char* alreadyReturned = "Future already returned it's value or has an associated continuation.";
constexpr const char* cancelledText = "Future has been cancelled.";
constexpr const char* invalidText = "Future state isn't valid!";

/// What `ask` gives: a number as text, or the text of what it throws.
inline std::string outcomeOf(const std::function<int()>& ask) {
    try {
        return std::to_string(ask());
    } catch (const std::exception& error) {
        return error.what();
    }
}
inline std::string taken(Future<int>& future) {
    return outcomeOf([&] { return future.get(); });
}
inline std::string taken(Future<int>&& future) {
    return taken(future);
}

inline bool isPending(const Future<int>& future) {
    const auto& state = detail::FutureAccess::state(future);
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->status == detail::FutureStatus::Pending;
}

/// What get() gives, for then().
inline int get(Future<int> future) {
    return future.get();
}

/// The ways in which a pending state can end, and what a consumer finds. The last one lets go of it.
struct End {
    const char* name;
    std::function<void(std::shared_ptr<IntState>&)> end;
    std::string_view text;
};
inline const End ends[] = {
    {"value", [](auto& state) { state->setValue(1); }, "1"},
    {"exception", [](auto& state) { state->setException(std::make_exception_ptr(std::logic_error("boom"))); }, "boom"},
    {"cancelled", [](auto& state) { detail::cancelState(state); }, cancelledText},
    {"dropped", [](auto& state) { state.reset(); }, cancelledText},
};

/// Runs `body` on a thread with a stack of 256 KiB, and waits for it.
inline void onSmallStack(const std::function<void()>& body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{256} * 1024);
    pthread_t thread{};
    const auto run = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    if (pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&body)) != 0)
        throw std::bad_alloc();
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

/// As many links as a test of any length has; fewer where each takes long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int manyLinks = 10'000;
#else
constexpr int manyLinks = 100'000;
#endif

/// Runs `body` when its last copy dies.
inline std::shared_ptr<void> atEnd(std::function<void()> body) {
    return {nullptr, [body = std::move(body)](void*) { body(); }};
}

} // namespace connector::test
