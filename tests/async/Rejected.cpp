// Code that must not compile, each case for the one reason that its line says. Case 0 compiles.
#include <connector/api/ServiceProvider.h>
#include <connector/async/Coroutine.h>
#include <connector/async/Then.h>
#include <connector/async/ThenError.h>
#include <connector/async/ThenValue.h>
#include <connector/async/Via.h>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

Future<MessagePtr> answer(MessagePtr message) {
    co_return std::move(message);
}

struct Provider : ServiceProvider {
    Future<MessagePtr> handle(MessagePtr&& message, Address&& /*unused*/,
                              std::shared_ptr<Context>&& /*unused*/) override {
#if CASE == 1 // handle() can't be a coroutine, since what its references refer to may be gone after a co_await
        co_return std::move(message);
#else
        return answer(std::move(message));
#endif
    }
};

#if CASE == 2 // the function given to then() must take one argument, the resolved Future<T>
auto result = then(makeReadyFuture(1), [](int value) { return value; });
#elif CASE == 3 // a Future carries an object: use a Future<std::monostate> where there is none
Future<void> nothing(Future<int> future) {
    co_await future;
}
#elif CASE == 4 // a Future can't carry a reference: use a pointer or a std::reference_wrapper
int& of(Future<int&>& future) {
    return future.get();
}
#elif CASE == 5 // the function given to thenValue() must take one argument, the value
auto result = makeReadyFuture(1) | thenValue([](std::string value) { return value; });
#elif CASE == 6 // the function given to thenError<E>() must return the type of its future, or a Future of it
auto result = makeReadyFuture(1) | thenError<std::exception>([](std::exception&) { return std::string(); });
#elif CASE == 7 // an executor must have execute(task) or post(task), or be a function that takes a task
Future<int> result = makeReadyFuture(1) | via(1);
#endif
