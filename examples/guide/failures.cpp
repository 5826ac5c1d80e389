#include <connector/async/Cancel.h>
#include <connector/async/Promise.h>
#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <iostream>
#include <stdexcept>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

struct Empty : Message {};

class Faulty : public ServiceProvider {
    Future<MessagePtr> handle(MessagePtr&& message, Address&& rest, std::shared_ptr<Context>&&) override {
        const MessagePtr taken = std::move(message);
        if (rest.toString() == "later")
            return Promise<MessagePtr>().future(); // a promise that dies unanswered
        throw std::domain_error("out of paper");
    }
};

int main() {
    fl::log::setEnabledSeverityMask("connector::framework", 0); // failures are logged, too
    auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("printer", std::make_shared<Faulty>());
    const auto context = connector->newContext();

    const auto print = [](Future<MessagePtr> reply, const MessagePtr& message) {
        try {
            reply.get();
        } catch (const std::exception& error) { // a type of the standard library's, or the provider's own
            std::cout << error.what() << (message ? " (message kept)\n" : " (message taken)\n");
        }
    };
    const auto request = [&](const char* address) {
        MessagePtr message = std::make_unique<Empty>();
        auto reply = context->handle(std::move(message), Address(address)); // throws none of them
        print(std::move(reply), message);
    };
    request("");
    request("scanner/page/1");
    request("printer");
    request("printer/later");

    Promise<MessagePtr> promise;
    auto reply = promise.future();
    cancel(reply);
    print(std::move(reply), nullptr);

    connector.reset();
    request("printer");
}
