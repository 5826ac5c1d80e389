// Uses each template and each inline function of the installed headers in one module, so that the symbols that a host
// gets from them can be read. Never run.

#include <connector/api/ServiceNameHash.h>
#include <connector/async/After.h>
#include <connector/async/Cancel.h>
#include <connector/async/Collect.h>
#include <connector/async/Coroutine.h>
#include <connector/async/Ensure.h>
#include <connector/async/Promise.h>
#include <connector/async/Ready.h>
#include <connector/async/Retry.h>
#include <connector/async/StopToken.h>
#include <connector/async/Then.h>
#include <connector/async/ThenError.h>
#include <connector/async/ThenValue.h>
#include <connector/async/TimeLimit.h>
#include <connector/async/Via.h>
#include <connector/async/WhenAll.h>
#include <connector/async/WhenAny.h>
#include <connector/async/Window.h>
#include <connector/async/Within.h>
#include <connector/context/ContextImpl.h>
#include <connector/core/ConnectorImpl2.h>
#include <connector/diagnostics/ModuleIdentity.h>
#include <connector/exchange/ConnectorImpl.h>
#include <fl/except/IInternalException.h>
#include <fl/log/basic_diagnostic_logger.h>
#include <fl/log/severity_mask.h>
#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/UnexpectedMessage.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

template class connector::detail::SharedFutureState<MessagePtr>;
template class connector::detail::SharedFutureState<std::string>;
template class connector::Future<MessagePtr>;
template class connector::Future<std::string>;
template class connector::Promise<MessagePtr>;
template class connector::Promise<std::string>;
template class fl::log::basic_diagnostic_logger<char>;

namespace {

template <class T>
Future<T> coroutine(Future<T> future, std::vector<Future<T>> futures) {
    futures = co_await whenAll(std::move(futures));
    co_await std::move(futures.front());
    co_return co_await future;
}

template <class T>
void useFutures(T value) {
    std::vector<Future<T>> futures;
    futures.push_back(makeReadyFuture(std::move(value)));
    futures.push_back(makeExceptionalFuture<T>());
    futures.push_back(makeExceptionalFuture<T>(std::runtime_error("failed")));
    Future<T> taken = then(coroutine(Promise<T>().future(), std::move(futures)), [](Future<T> reply) {
        static_cast<void>(getUntil(reply, std::chrono::system_clock::now()));
        return getFor(reply, std::chrono::duration<float>(1)).value();
    });
    taken = then(std::move(taken), [](Future<T> reply) { return reply; });
    const auto inlineExecutor = [](auto task) { task(); };
    taken = then(std::move(taken), inlineExecutor, [](Future<T> reply) { return reply; }) | via(inlineExecutor) |
            thenValue([](T reply) { return ready(std::move(reply)); }) |
            thenError<std::logic_error>([](std::logic_error&) { return failed<T>(std::runtime_error("failed")); }) |
            ensure([] {}) | within(std::chrono::seconds(1)) | cancelOn(std::stop_token());
    static_cast<void>(whenAll(after(std::chrono::seconds(0)), std::move(taken)));
    static_cast<void>(whenAny(window(std::vector<int>(3), 2, [](int) { return Promise<T>().future(); })));
    taken =
        collect(std::vector<Future<T>>()) | thenValue([](std::vector<T> values) { return std::move(values.at(0)); });
    static_cast<void>(retry(RetryPolicy(), [] { return Promise<T>().future(); }));
    cancel(taken);
    then(std::move(taken), [](Future<T>) {}).get();
}

} // namespace

extern "C" std::size_t useTemplates(MessagePtr message, ContextImpl& context,
                                    fl::log::basic_diagnostic_logger<char>& log) {
    useFutures(std::move(message));
    useFutures(std::string("value"));
    Address address("?a/b");
    Address moved;
    moved = std::move(address);
    context.set("number", 1, ContextScope::Local);
    context.set("text", moved.pop(), ContextScope::Local);
    FL_LOG(log, fl::log::enabledSeverityMask("channel")) << "text" << ContextData().contains("key");
    return moved.popHash() ^ serviceNameHash(Address(moved).toString());
}
