#include "linking-plugin.h"

#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <atomic>
#include <condition_variable>
#include <dlfcn.h>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

/// Stands in the registry for the service of a plugin. What needs the plugin's code stays on this side of it: a reply
/// is copied into a message of the host, an exception into one of the standard library.
class Guest : public ServiceProvider {
public:
    Guest(const char* file, Context& data) : module(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
        if (!module)
            throw std::runtime_error(dlerror());
        reinterpret_cast<decltype(&openPlugin)>(dlsym(module, "openPlugin"))(service, data);
    }

    /// Once the service is removed: waits for the calls that had found it, destroys the service and unloads the plugin.
    void unload() {
        std::unique_lock<std::mutex> lock(mutex);
        idle.wait(lock, [this] { return calls == 0; });
        service.reset();
        dlclose(module);
    }

private:
    void start() override { service->start(); }
    void stop() override { service->stop(); }

    Future<MessagePtr> handle(MessagePtr&& message, Address&& rest, std::shared_ptr<Context>&& context) override {
        const Call call(*this);
        try {
            const MessagePtr reply = service->handle(std::move(message), std::move(rest), std::move(context)).get();
            return makeReadyFuture<MessagePtr>(std::make_unique<Text>(dynamic_cast<Text&>(*reply).text));
        } catch (const std::exception& error) {
            throw std::runtime_error(error.what());
        }
    }

    /// A call of the plugin under way. A message may have found the service just before it was removed.
    class Call {
    public:
        explicit Call(Guest& guest) : guest(guest) {
            const std::lock_guard<std::mutex> lock(guest.mutex);
            if (!guest.service)
                throw std::runtime_error("the plugin is unloaded");
            ++guest.calls;
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        ~Call() {
            const std::lock_guard<std::mutex> lock(guest.mutex);
            --guest.calls;
            guest.idle.notify_all();
        }

    private:
        Guest& guest;
    };

    void* const module;
    std::mutex mutex;
    std::condition_variable idle;
    int calls = 0;
    std::shared_ptr<ServiceProvider> service;
};

Future<MessagePtr> send(Context& context, const char* name) {
    return context.handle(std::make_unique<Text>(name), Address("greeter"));
}

std::string text(Future<MessagePtr> reply) {
    try {
        return dynamic_cast<Text&>(*reply.get()).text;
    } catch (const std::exception& error) {
        return std::string("failed: ") + error.what();
    }
}

int main(int, char** arguments) {
    fl::log::setEnabledSeverityMask("connector::framework", 0);
    const auto connector = std::make_shared<ConnectorImpl2>();
    const auto context = connector->newContext();
    std::atomic<bool> done{false};
    std::atomic<int> greetings{0};
    std::thread sender([&, own = connector->newContext()] {
        while (!done)
            if (text(send(*own, "Grace")) == "Hello, Grace")
                ++greetings;
    });

    std::vector<Future<MessagePtr>> replies;
    for (int round = 0; round < 1000; ++round) {
        const auto guest = std::make_shared<Guest>(arguments[1], *context);
        connector->addServiceProvider("greeter", guest);
        if (round == 0) {
            std::cout << "version " << boost::any_cast<int>(context->get("greeter.version")) << '\n';
            replies.push_back(send(*context, "Ada"));
            replies.push_back(send(*context, ""));
        }
        for (const int before = greetings; greetings == before;)
            std::this_thread::yield();

        connector->removeServiceProvider("greeter");              // no further message finds it
        context->erase("greeter.version", ContextScope::Process); // the plugin's code destroys it, though an int
        guest->unload();
        if (dlopen(arguments[1], RTLD_NOW | RTLD_NOLOAD))
            std::cout << "still loaded\n";
    }
    done = true;
    sender.join();
    std::cout << "loaded and unloaded 1000 times while messages flowed\n";
    for (Future<MessagePtr>& reply : replies)
        std::cout << text(std::move(reply)) << '\n';
}
