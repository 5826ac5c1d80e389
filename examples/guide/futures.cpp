#include <connector/async/Cancel.h>
#include <connector/async/Promise.h>
#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>

#include <iostream>
#include <stdexcept>
#include <thread>

using namespace connector;

int twice(Future<int> reply) {
    return 2 * reply.get();
}

int main() {
    // Resolved on another thread; get() waits.
    Promise<int> answer;
    Future<int> doubled = then(answer.future(), twice);
    std::thread producer([promise = std::move(answer)]() mutable { promise.setValue(21); });
    std::cout << "then: " << doubled.get() << '\n';
    producer.join();

    // A failure goes through to whoever asks for the result.
    doubled = then(makeExceptionalFuture<int>(std::domain_error("no number")), twice);
    try {
        doubled.get();
    } catch (const std::domain_error& error) {
        std::cout << "then: " << error.what() << '\n';
    }

    // Several at once, each with its own outcome.
    std::vector<Future<int>> parts;
    for (int part : {1, 2, 3})
        parts.push_back(makeReadyFuture(std::move(part)));
    int sum = 0;
    for (Future<int>& part : whenAll(std::move(parts)).get())
        sum += part.get();
    std::cout << "whenAll: " << sum << '\n';

    // Waits for a limited time, then gives up: the producer sees it through the chain.
    Promise<int> never;
    doubled = then(never.future(), twice);
    if (!getFor(doubled, std::chrono::milliseconds(1)))
        cancel(doubled);
    std::cout << "cancelled: " << std::boolalpha << never.cancelled() << '\n';
}
