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

/// A provider of the host that calls the provider of a plugin. The host receives nothing that needs the plugin's code:
/// a reply is copied into a message of the host, and an exception into one of the standard library.
class Guest : public ServiceProvider {
public:
    Guest(const char* file, Context& data) : module(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
        if (!module)
            throw std::runtime_error(dlerror());
        reinterpret_cast<decltype(&openPlugin)>(dlsym(module, "openPlugin"))(service, data);
    }

    /// Call it after the service was removed. Waits for calls in progress, destroys the provider and unloads the
    /// plugin.
    void unload() {
        std::unique_lock<std::mutex> lock(mutex);
        idle.wait(lock, [this] { return calls == 0; });
        service.reset();
        dlclose(module);
    }

private:
    void start() override { service->start(); }
    void stop() override { service->stop(); }

    Reply handle(MessagePtr&& message, Address&& rest, std::shared_ptr<Context>&& context) override {
        const Call call(*this);
        try {
            const MessagePtr reply = service->handle(std::move(message), std::move(rest), std::move(context)).get();
            return makeReadyFuture<MessagePtr>(std::make_unique<Text>(dynamic_cast<Text&>(*reply).text));
        } catch (const std::exception& error) {
            throw std::runtime_error(error.what());
        }
    }

    /// A call of the plugin in progress. It may begin after the removal, if the message was routed before it.
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

Reply send(Context& context, const char* name) {
    return context.handle(std::make_unique<Text>(name), Address("greeter"));
}

std::string text(Reply reply) {
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

    std::vector<Reply> replies;
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
        context->erase("greeter.version", ContextScope::Process); // even an int is destroyed by the plugin's code
        guest->unload();
        if (dlopen(arguments[1], RTLD_NOW | RTLD_NOLOAD))
            std::cout << "still loaded\n";
    }
    done = true;
    sender.join();
    std::cout << "loaded and unloaded 1000 times while messages flowed\n";
    for (Reply& reply : replies)
        std::cout << text(std::move(reply)) << '\n';
}
