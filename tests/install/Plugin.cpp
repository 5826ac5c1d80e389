#include <connector/async/Promise.h>
#include <connector/core/ConnectorImpl2.h>

#include <stdexcept>
#include <vector>

using namespace connector;

namespace {

class Echo : public ServiceProvider {
    Future<std::unique_ptr<Message>> handle(std::unique_ptr<Message>&& message, Address&&,
                                            std::shared_ptr<Context>&&) override {
        return makeReadyFuture(std::move(message));
    }
};

} // namespace

/// Replies that a host may still have when this is unloaded.
extern "C" void answer(std::vector<Future<std::unique_ptr<Message>>>& replies) {
    replies.push_back(makeReadyFuture<std::unique_ptr<Message>>(nullptr));
    replies.push_back(makeExceptionalFuture<std::unique_ptr<Message>>(std::runtime_error("failed")));
    replies.push_back(Promise<std::unique_ptr<Message>>().future());
}

/// What a host in a plugin does: registers, routes, logs, keeps data, and leaves nothing behind.
extern "C" bool useFramework() {
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("echo", std::make_shared<Echo>());
    const auto context = connector->newContext();
    context->set("key", std::string("value"), ContextScope::Process);
    const bool empty = !context->handle(nullptr, Address("?none/echo")).get();
    try {
        context->handle(nullptr, Address("nobody")).get();
    } catch (const std::invalid_argument&) {
        return empty;
    }
    return false;
}
