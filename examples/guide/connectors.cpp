#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>
#include <fl/log/severity_mask.h>

#include <iostream>
#include <stdexcept>
#include <typeinfo>

using namespace connector;

struct Text : Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

class Echo : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
        if (dynamic_cast<Text&>(*message).text == "fail")
            throw std::out_of_range("too loud");
        return makeReadyFuture(std::move(message));
    }
};

/// Sends the same requests through any connector.
void demonstrate(Connector& connector) {
    connector.addServiceProvider("echo", std::make_shared<Echo>());
    const auto context = connector.newContext();
    const auto request = [&context](const char* address, const char* text) {
        std::unique_ptr<Message> message = std::make_unique<Text>(text);
        std::cout << "  " << address << ": ";
        try {
            std::cout << dynamic_cast<Text&>(*context->handle(std::move(message), Address(address)).get()).text << '\n';
        } catch (const std::exception& error) {
            const bool original = typeid(error) == typeid(std::out_of_range);
            std::cout << (original ? "original exception: " : "failed: ") << error.what()
                      << (message ? "; message kept\n" : "\n");
        }
    };
    request("echo", "hello");
    request("echo", "fail");
    request("?cache/echo", "hello");
    request("nobody", "hello");
    connector.removeServiceProvider("echo");
}

int main() {
    fl::log::setEnabledSeverityMask("connector::framework", 0);
    std::cout << "ConnectorImpl2\n";
    demonstrate(*std::make_shared<ConnectorImpl2>());
    std::cout << "ConnectorImpl\n";
    demonstrate(*std::make_shared<ConnectorImpl>());
}
