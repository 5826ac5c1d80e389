#include "linking-plugin.h"

#include <exception>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

namespace {

struct Nameless : std::exception {
    const char* what() const noexcept override { return "nobody to greet"; }
};

class Greeter : public ServiceProvider {
    Reply handle(MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) override {
        const std::string& name = dynamic_cast<Text&>(*message).text;
        if (name.empty())
            throw Nameless();
        return makeReadyFuture<MessagePtr>(std::make_unique<Text>("Hello, " + name));
    }
};

} // namespace

extern "C" void openPlugin(std::shared_ptr<ServiceProvider>& service, Context& data) {
    service = std::make_shared<Greeter>();
    data.set("greeter.version", 3, ContextScope::Process);
}
