#pragma once

#include "support/Told.h"

#include <connector/api/Connector.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace connector::test {

using MessagePtr = std::unique_ptr<Message>;
using Reply = Future<MessagePtr>;
using State = detail::SharedFutureState<MessagePtr>;

/// A message with a text, which counts itself in `alive` if it is given one.
class TextMessage : public Message {
public:
    explicit TextMessage(std::string text, std::shared_ptr<int> alive = nullptr)
        : text(std::move(text)), alive(std::move(alive)) {}

    const std::string text;

private:
    const std::shared_ptr<int> alive; // its use_count() less one is the number of messages that live
};

inline MessagePtr message(std::string text) {
    return std::make_unique<TextMessage>(std::move(text));
}

inline std::string text(const MessagePtr& message) {
    return message ? dynamic_cast<const TextMessage&>(*message).text : "(no message)";
}

inline Reply ready(std::string text) {
    return makeReadyFuture(message(std::move(text)));
}

/// A provider whose handle() is `body`; it counts what connectors call.
class TestProvider : public ServiceProvider {
public:
    using Body = std::function<Reply(MessagePtr&&, Address&&, std::shared_ptr<Context>&&)>;

    /// Answers with the message's text and the rest of the address: "text@rest".
    TestProvider()
        : TestProvider([](MessagePtr&& message, Address&& address, std::shared_ptr<Context>&&) {
              return ready(test::text(message) + "@" + address.toString());
          }) {}
    explicit TestProvider(Body body) : body(std::move(body)) {}

    void start() override {
        ++starts;
        if (onStart)
            onStart();
    }
    void stop() override {
        ++stops;
        if (onStop)
            onStop();
    }
    Reply handle(MessagePtr&& message, Address&& address, std::shared_ptr<Context>&& context) override {
        ++handles;
        return body(std::move(message), std::move(address), std::move(context));
    }

    std::atomic<int> starts{0}, stops{0}, handles{0};
    std::function<void()> onStart, onStop;

private:
    const Body body;
};

template <class... Args>
std::shared_ptr<TestProvider> provider(Args&&... args) {
    return std::make_shared<TestProvider>(std::forward<Args>(args)...);
}

/// Answers with the message itself.
inline std::shared_ptr<TestProvider> echo() {
    return provider([](MessagePtr&& message, auto&&...) { return makeReadyFuture(std::move(message)); });
}

/// Keeps its message in `kept`, and gives an empty reply.
inline std::shared_ptr<TestProvider> keeper(MessagePtr& kept) {
    return provider([&kept](MessagePtr&& message, auto&&...) {
        kept = std::move(message);
        return makeReadyFuture(MessagePtr());
    });
}

/// Throws `exception`, and keeps its message in `kept`, if it is given that.
template <class E>
std::shared_ptr<TestProvider> thrower(E exception, MessagePtr* kept = nullptr) {
    return provider([exception, kept](MessagePtr&& message, auto&&...) -> Reply {
        if (kept)
            *kept = std::move(message);
        throw exception;
    });
}

/// Sends a message with `text` and returns the future of its reply.
inline Reply send(Connector& connector, const std::string& address, std::string text = "hello") {
    return connector.handle(message(std::move(text)), Address(address), nullptr);
}

/// The text of a reply, or the type and text of its failure.
inline std::string outcome(Reply&& reply) {
    return told([&reply] { return text(reply.get()); });
}

} // namespace connector::test
