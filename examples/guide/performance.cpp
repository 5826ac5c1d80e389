#include <connector/core/ConnectorImpl2.h>

#include <cstdlib>
#include <iostream>
#include <new>

using namespace connector;

static std::size_t allocations = 0;

// Not inlined: g++ would otherwise warn that std::free() doesn't match operator new.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* const block = std::malloc(size))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

struct Number : Message {};

class Echo : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
        return makeReadyFuture(std::move(message));
    }
};

int main() {
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("echo", std::make_shared<Echo>());
    const auto context = connector->newContext();

    std::size_t before = allocations;
    const auto count = [&before](const char* what) {
        std::cout << what << ": " << allocations - before << '\n';
        before = allocations;
    };
    std::unique_ptr<Message> message = std::make_unique<Number>();
    count("the message     ");
    Address address("echo/any/rest");
    count("a short address ");
    auto reply = context->handle(std::move(message), std::move(address));
    count("routing, reply  ");
    message = reply.get();
    count("get             ");
}
