#include <connector/async/Cancel.h>
#include <connector/async/Promise.h>
#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>
#include <connector/async/WhenAll.h>

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

    // The consumer of the result gets the failure of the reply.
    doubled = then(makeExceptionalFuture<int>(std::domain_error("no number")), twice);
    try {
        doubled.get();
    } catch (const std::domain_error& error) {
        std::cout << "then: " << error.what() << '\n';
    }

    // Several replies, each with its own value or exception.
    std::vector<Future<int>> parts;
    for (int part : {1, 2, 3})
        parts.push_back(makeReadyFuture(std::move(part)));
    int sum = 0;
    for (Future<int>& part : whenAll(std::move(parts)).get())
        sum += part.get();
    std::cout << "whenAll: " << sum << '\n';

    // Waits for a limited time, then cancels. The promise at the other end of the chain learns of it.
    Promise<int> never;
    doubled = then(never.future(), twice);
    if (!getFor(doubled, std::chrono::milliseconds(1)))
        cancel(doubled);
    std::cout << "cancelled: " << std::boolalpha << never.cancelled() << '\n';
}
