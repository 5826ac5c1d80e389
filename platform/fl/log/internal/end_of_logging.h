#pragma once

#include <chrono>
#include <thread>

namespace fl::log::internal {

/// Arranges the end of logging, with the first call. When the process ends or the library is unloaded, logging ends
/// before Boost.Log destroys the objects with which it writes: the end waits for statements under way on other threads.
void arrangeEndOfLogging();

/// Whether logging has ended. Sequentially consistent, like a logger's count of statements and the test of its mask
/// that follows: either the end sees that a statement is counted, or the statement sees the end.
bool loggingHasEnded() noexcept;

/// Waits while `condition` is true, but at most a second: a sink that never returns must not keep the process from
/// ending.
template <class Condition>
void waitWhile(const Condition& condition) {
    const auto enough = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (condition() && std::chrono::steady_clock::now() < enough)
        std::this_thread::yield();
}

} // namespace fl::log::internal
