#include <connector/async/Promise.h>
#include <connector/async/Then.h>
#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <atomic>
#include <iostream>
#include <stdexcept>
#include <thread>

using namespace connector;

struct Empty : Message {};

class Echo : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
        return makeReadyFuture(std::move(message));
    }
};

int main() {
    fl::log::setEnabledSeverityMask("connector::framework", 0);
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("echo", std::make_shared<Echo>());

    // Services are keyed by the hash of their names; a second name with the same hash is refused.
    connector->addServiceProvider("aB", std::make_shared<Echo>());
    try {
        connector->addServiceProvider("b!", std::make_shared<Echo>());
    } catch (const std::runtime_error& error) {
        std::cout << error.what() << '\n';
    }

    // Registrations make progress while messages are routed without a pause.
    std::atomic<bool> changed{false};
    std::thread caller([&] {
        while (!changed)
            connector->handle(std::make_unique<Empty>(), Address("echo"), nullptr).get();
    });
    for (int i = 0; i < 100; ++i) {
        connector->addServiceProvider("guest", std::make_shared<Echo>());
        connector->removeServiceProvider("guest");
    }
    changed = true;
    caller.join();
    std::cout << "200 changes under load\n";

    // Continuations run in a loop, not inside each other.
    Promise<int> promise;
    Future<int> last = promise.future();
    for (int i = 0; i < 100000; ++i)
        last = then(std::move(last), [](Future<int> reply) { return reply.get() + 1; });
    promise.setValue(0);
    std::cout << last.get() << " continuations in a row\n";
}
