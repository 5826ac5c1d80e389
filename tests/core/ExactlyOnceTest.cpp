#include "Worker.h"
#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>

#include <gmock/gmock.h>

#include <atomic>

namespace connector::test {
namespace {

using State = detail::SharedFutureState<MessagePtr>;

class ExactlyOnce : public testing::TestWithParam<const char*> {
protected:
    static std::shared_ptr<Connector> makeConnector() {
        if (GetParam() == std::string("exchange"))
            return std::make_shared<ConnectorImpl>();
        return std::make_shared<ConnectorImpl2>();
    }
};

// Every way to answer and not to answer, while providers are added, removed, stopped and started: each request ends in
// one reply or one error, and when all is over every message has died.
TEST_P(ExactlyOnce, EachRequestEndsInOneReplyOrOneError) {
    const auto alive = std::make_shared<int>(0);
    Worker<> worker;
    const std::shared_ptr<Connector> connector = makeConnector();
    const std::vector<std::pair<std::string, std::function<std::shared_ptr<ServiceProvider>()>>> services = {
        {"echo",
         [] { return provider([](MessagePtr&& message, auto&&...) { return makeReadyFuture(std::move(message)); }); }},
        {"keep", [] { return provider([](auto&&...) { return ready("kept"); }); }}, // never takes its message
        {"throw", [] { return provider([](auto&&...) -> Reply { throw std::runtime_error("boom"); }); }},
        {"throw after taking",
         [] {
             return provider([](MessagePtr&& message, auto&&...) -> Reply {
                 const MessagePtr taken = std::move(message);
                 throw 7;
             });
         }},
        {"late",
         [&worker] {
             return provider([&worker](MessagePtr&& message, auto&&...) {
                 const auto state = std::make_shared<State>();
                 worker.post(std::packaged_task<void()>(
                     [state, taken = std::move(message)]() mutable { state->setValue(std::move(taken)); }));
                 return Reply(state);
             });
         }},
    };
    std::atomic<int> replies{0};
    std::atomic<int> errors{0};
    const int perRound = 20;
    LogCapture silence(0);
    const auto route = [&](int round) {
        for (int i = 0; i < perRound; ++i) {
            const std::string& name = services[static_cast<std::size_t>(round + i) % services.size()].first;
            MessagePtr message = std::make_unique<TextMessage>("x", alive);
            try {
                connector->handle(std::move(message), Address(name), nullptr).get();
                ++replies;
            } catch (...) {
                ++errors;
            }
        }
    };
    const auto change = [&](int) {
        for (const auto& service : services) {
            connector->addServiceProvider(service.first, service.second());
            connector->stop();
            connector->start();
            connector->removeServiceProvider(service.first);
        }
    };
    const int count = rounds(30);
    race(count, {route, route, route, change});
    EXPECT_EQ(replies + errors, 3 * perRound * count);
    EXPECT_EQ(alive.use_count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Connectors, ExactlyOnce, testing::Values("in process", "exchange"),
                         [](const auto& parameter) { return parameter.param[0] == 'e' ? "Exchange" : "InProcess"; });

} // namespace
} // namespace connector::test
