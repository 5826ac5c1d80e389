#include <connector/core/ConnectorImpl2.h>

#include <iostream>
#include <system_error>
#include <thread>

using namespace connector;

/// A message that records the thread that sent it.
struct Hail : Message {
    std::thread::id caller = std::this_thread::get_id();
};

class Idle : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
        return makeReadyFuture(std::move(message));
    }
};

/// Tries to register a service from each of its functions.
class Registrar : public ServiceProvider {
public:
    explicit Registrar(Connector& connector) : connector(connector) {}

private:
    void start() override { tryFrom("start"); }
    void stop() override { tryFrom("stop"); }
    Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
        if (dynamic_cast<Hail&>(*message).caller == std::this_thread::get_id())
            std::cout << "handle: runs on the caller's thread\n";
        tryFrom("handle");
        return makeReadyFuture(std::move(message));
    }

    void tryFrom(const std::string& where) {
        try {
            connector.addServiceProvider("added in " + where, std::make_shared<Idle>());
            std::cout << where << ": registered a service\n";
        } catch (const std::system_error& error) {
            if (error.code() == std::errc::resource_deadlock_would_occur)
                std::cout << where
                          << ": refused, it would deadlock; reading works: " << connector.listServiceProviders().size()
                          << " services\n";
        }
    }

    Connector& connector;
};

int main() {
    const auto connector = std::make_shared<ConnectorImpl2>();
    connector->addServiceProvider("registrar", std::make_shared<Registrar>(*connector)); // start(): no lock is held
    std::thread([&] { connector->handle(std::make_unique<Hail>(), Address("registrar"), nullptr).get(); }).join();
    connector->stop(); // stop(): under the shared lock
}
