#include <connector/core/ConnectorImpl2.h>

using namespace connector;

namespace {

class Echo : public ServiceProvider {
    Future<std::unique_ptr<Message>> handle(std::unique_ptr<Message>&& message, Address&&,
                                            std::shared_ptr<Context>&&) override {
        return makeReadyFuture(std::move(message));
    }
};

} // namespace

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
