#include <connector/core/ConnectorImpl2.h>

#include <iostream>

using namespace connector;

struct Text : Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

/// A provider: answers with the message's text, the rest of the address and a value from the context.
class Bar : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&& rest, std::shared_ptr<Context>&& context) override {
        const auto guest = boost::any_cast<std::string>(context->get("guest"));
        auto& text = dynamic_cast<Text&>(*message).text;
        text += " x " + rest.toString() + " for " + guest;
        return makeReadyFuture(std::move(message));
    }
};

int main() {
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("bar", std::make_shared<Bar>());

    const auto session = connector->newContext()->newSession();
    session->set("guest", std::string("Ada"), ContextScope::Session);

    for (const char* address : {"bar/coffee/black", "?waiter/bar/tea"}) {
        Reply reply = session->handle(std::make_unique<Text>("two"), Address(address));
        std::cout << address << ": " << dynamic_cast<Text&>(*reply.get()).text << '\n';
    }
}
