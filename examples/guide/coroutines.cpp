#include <connector/async/Coroutine.h>
#include <connector/async/Promise.h>

#include <iostream>

using namespace connector;

/// Adds two numbers when they arrive. No thread waits for them.
Future<int> sum(Future<int> left, Future<int> right) {
    std::cout << "sum: begins\n";
    const int first = co_await left;
    std::cout << "sum: has " << first << '\n';
    co_return first + co_await right;
}

int main() {
    Promise<int> left;
    Promise<int> right;
    Future<int> result = sum(left.future(), right.future());
    std::cout << "main: continues\n";
    left.setValue(40);
    right.setValue(2);
    std::cout << "main: " << result.get() << '\n';
}
