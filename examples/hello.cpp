#include <connector/core/ConnectorImpl2.h>

#include <iostream>

using namespace connector;

struct Text : Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

class Greeter : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
        auto& text = dynamic_cast<Text&>(*message).text;
        text = "Hello, " + text + "!";
        return makeReadyFuture(std::move(message));
    }
};

int main() {
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("greet", std::make_shared<Greeter>());

    auto reply = connector->handle(std::make_unique<Text>("world"), Address("greet"), connector->newContext());
    std::cout << dynamic_cast<Text&>(*reply.get()).text << '\n';
}
