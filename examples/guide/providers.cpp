#include <connector/async/Promise.h>
#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <iostream>
#include <stdexcept>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

struct Text : Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

/// Answers at once, or throws.
class Length : public ServiceProvider {
    Reply handle(MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) override {
        auto& text = dynamic_cast<Text&>(*message).text;
        if (text.empty())
            throw std::invalid_argument("nothing to measure");
        text = std::to_string(text.size());
        return makeReadyFuture(std::move(message));
    }
};

/// Answers one request later, when the host calls answer().
class Clerk : public ServiceProvider {
public:
    void answer() { promise.setValue(std::make_unique<Text>("your turn")); }

private:
    void start() override { std::cout << "clerk: open\n"; }
    void stop() override { std::cout << "clerk: closed\n"; }
    Reply handle(MessagePtr&&, Address&&, std::shared_ptr<Context>&&) override { return promise.future(); }

    Promise<MessagePtr> promise;
};

/// An interceptor: prints each message and sends it on to the next service, in the caller's context.
class Audit : public ServiceProvider {
    Reply handle(MessagePtr&& message, Address&& rest, std::shared_ptr<Context>&& context) override {
        std::cout << "audit: '" << dynamic_cast<Text&>(*message).text << "' is sent on to " << rest.toString() << '\n';
        return context->handle(std::move(message), std::move(rest));
    }
};

int main() {
    fl::log::setEnabledSeverityMask("connector::framework", 0); // exceptions of providers are also logged
    const auto connector = std::make_shared<ConnectorImpl2>();
    const auto clerk = std::make_shared<Clerk>();
    connector->addServiceProvider("length", std::make_shared<Length>());
    connector->addServiceProvider("clerk", clerk);
    const auto context = connector->newContext();
    const auto send = [&context](std::string text, const char* address) {
        return context->handle(std::make_unique<Text>(std::move(text)), Address(address));
    };
    const auto print = [](Reply reply) {
        try {
            const MessagePtr message = reply.get();
            std::cout << "reply: " << dynamic_cast<Text&>(*message).text << '\n';
        } catch (const std::exception& error) {
            std::cout << "failed: " << error.what() << '\n';
        }
    };

    print(send("four", "length"));
    print(send("", "length"));

    auto later = send("me, please", "clerk");
    clerk->answer();
    print(std::move(later));

    print(send("seven", "?audit/length"));
    connector->addServiceProvider("audit", std::make_shared<Audit>());
    print(send("seven", "?audit/length"));

    connector->stop();
    connector->removeServiceProvider("clerk");
}
