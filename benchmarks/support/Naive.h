#pragma once

#include "Worker.h"
#include "support/Host.h"

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace bench {

/// Routing without a framework: a map of functions, guarded by a lock.
class NaiveRouter {
public:
    using Function = std::function<std::future<MessagePtr>(MessagePtr&&)>;

    void add(const std::string& name, Function function) {
        const std::lock_guard<std::shared_mutex> lock(mutex);
        functions.emplace(name, std::move(function));
    }

    std::future<MessagePtr> handle(const std::string& name, MessagePtr&& message) {
        Function function;
        {
            const std::shared_lock<std::shared_mutex> lock(mutex);
            function = functions.at(name);
        }
        return function(std::move(message));
    }

private:
    std::shared_mutex mutex;
    std::unordered_map<std::string, Function> functions;
};

inline std::future<MessagePtr> naiveEcho(MessagePtr&& message) {
    std::promise<MessagePtr> promise;
    promise.set_value(std::move(message));
    return promise.get_future();
}

/// A function for NaiveRouter that answers on a worker's thread.
class NaiveLater {
public:
    struct Task {
        std::promise<MessagePtr> promise;
        MessagePtr message;
        void operator()() { promise.set_value(std::move(message)); }
    };

    explicit NaiveLater(Worker<Task>& worker) : worker(&worker) {}

    std::future<MessagePtr> operator()(MessagePtr&& message) const {
        Task task{{}, std::move(message)};
        std::future<MessagePtr> future = task.promise.get_future();
        worker->post(std::move(task));
        return future;
    }

private:
    Worker<Task>* worker;
};

/// A provider that answers on a worker's thread.
class Later : public connector::ServiceProvider {
public:
    struct Task {
        std::shared_ptr<connector::detail::SharedFutureState<MessagePtr>> state;
        MessagePtr message;
        void operator()() { state->setValue(std::move(message)); }
    };

    explicit Later(Worker<Task>& worker) : worker(worker) {}

    Reply handle(MessagePtr&& message, connector::Address&&, std::shared_ptr<connector::Context>&&) override {
        auto state = std::make_shared<connector::detail::SharedFutureState<MessagePtr>>();
        worker.post({state, std::move(message)});
        return Reply(std::move(state));
    }

private:
    Worker<Task>& worker;
};

inline long request(NaiveRouter& router, const std::string& name) {
    return numberOf(router.handle(name, std::make_unique<Number>(1)).get());
}

} // namespace bench
