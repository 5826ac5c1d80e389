#include <connector/async/Cancel.h>
#include <connector/async/Promise.h>
#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <iostream>
#include <stdexcept>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

struct Empty : Message {};

class Printer : public ServiceProvider {
    Reply handle(MessagePtr&& message, Address&& rest, std::shared_ptr<Context>&&) override {
        const MessagePtr taken = std::move(message);
        const std::string how = rest.toString();
        if (how == "forget")
            return Promise<MessagePtr>().future(); // the promise is destroyed unresolved
        if (how == "queue")
            return waiting.future();
        throw std::domain_error("out of paper");
    }

    Promise<MessagePtr> waiting;
};

int main() {
    fl::log::setEnabledSeverityMask("connector::framework", 0); // failures are also logged
    auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("printer", std::make_shared<Printer>());
    const auto context = connector->newContext();

    const auto request = [&context](const char* address) {
        MessagePtr message = std::make_unique<Empty>();
        auto reply = context->handle(std::move(message), Address(address)); // doesn't throw the failures
        cancel(reply); // has no effect on a reply that has already failed
        try {
            reply.get();
        } catch (const std::exception& error) { // a standard type, or one that the provider threw
            std::cout << error.what() << (message ? " (message kept)\n" : " (message taken)\n");
        }
    };
    request("");
    request("scanner/page/1");
    request("printer");
    request("printer/forget");
    request("printer/queue");
    connector.reset();
    request("printer");
}
