// Calls three services one after another without blocking a thread: with then(), and as a coroutine. Also cancels a
// request to a service that doesn't answer.

#include "Worker.h"

#include <connector/async/Cancel.h>
#include <connector/async/Coroutine.h>
#include <connector/async/Promise.h>
#include <connector/async/Then.h>
#include <connector/async/TimeLimit.h>
#include <connector/core/ConnectorImpl2.h>

#include <future>
#include <iostream>
#include <stdexcept>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

struct Text : Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

MessagePtr text(std::string text) {
    return std::make_unique<Text>(std::move(text));
}

std::string& textOf(const MessagePtr& message) {
    return dynamic_cast<Text&>(*message).text;
}

/// Answers later, on the worker: adds its mark to the text. Refuses an empty text at once.
class Desk : public ServiceProvider {
public:
    Desk(Worker<>& worker, std::string mark) : worker(worker), mark(std::move(mark)) {}

    Reply handle(MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) override {
        if (textOf(message).empty())
            return makeExceptionalFuture<MessagePtr>(std::invalid_argument("nothing to be " + mark));
        Promise<MessagePtr> promise;
        Reply reply = promise.future();
        worker.post(std::packaged_task<void()>(
            [promise = std::move(promise), message = std::move(message), mark = mark]() mutable {
                textOf(message) += ", " + mark;
                promise.setValue(std::move(message));
            }));
        return reply;
    }

private:
    Worker<>& worker;
    const std::string mark;
};

/// Sends an order to the three desks, as a coroutine. The arguments of handle() refer to objects of its caller, so it
/// passes them to the coroutine by value.
class Office : public ServiceProvider {
public:
    Reply handle(MessagePtr&& message, Address&&, std::shared_ptr<Context>&& context) override {
        return process(std::move(message), std::move(context));
    }

private:
    static Reply process(MessagePtr order, std::shared_ptr<Context> context) {
        order = co_await context->handle(std::move(order), Address("check"));
        order = co_await context->handle(std::move(order), Address("price"));
        co_return co_await context->handle(std::move(order), Address("ship"));
    }
};

/// Never answers. cancelled() returns whether its reply was cancelled.
class Oracle : public ServiceProvider {
public:
    Reply handle(MessagePtr&&, Address&&, std::shared_ptr<Context>&&) override { return promise.future(); }
    bool cancelled() const { return promise.cancelled(); }

private:
    Promise<MessagePtr> promise;
};

/// The same with then(): each function sends the answer of one desk to the next desk.
Reply process(MessagePtr order, const std::shared_ptr<Context>& context) {
    auto checked = context->handle(std::move(order), Address("check"));
    auto priced =
        then(std::move(checked), [context](Reply reply) { return context->handle(reply.get(), Address("price")); });
    return then(std::move(priced), [context](Reply reply) { return context->handle(reply.get(), Address("ship")); });
}

std::string outcome(Reply reply) {
    try {
        return textOf(reply.get());
    } catch (const std::invalid_argument& error) {
        return std::string("failed: ") + error.what();
    }
}

int main() {
    Worker<> worker;
    const auto oracle = std::make_shared<Oracle>();
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("check", std::make_shared<Desk>(worker, "checked"));
    connector->addServiceProvider("price", std::make_shared<Desk>(worker, "priced"));
    connector->addServiceProvider("ship", std::make_shared<Desk>(worker, "shipped"));
    connector->addServiceProvider("order", std::make_shared<Office>());
    connector->addServiceProvider("oracle", oracle);
    const auto context = connector->newContext();

    std::cout << "then:      " << outcome(process(text("ten books"), context)) << '\n';
    std::cout << "then:      " << outcome(process(text(""), context)) << '\n';
    std::cout << "coroutine: " << outcome(context->handle(text("six cups"), Address("order"))) << '\n';
    std::cout << "coroutine: " << outcome(context->handle(text(""), Address("order"))) << '\n';

    auto reply = context->handle(text("which horse?"), Address("oracle"));
    if (!getFor(reply, std::chrono::milliseconds(10))) {
        std::cout << "oracle:    no answer in time\n";
        cancel(reply);
    }
    std::cout << "oracle:    " << (oracle->cancelled() ? "cancelled" : "not cancelled") << '\n';
}
