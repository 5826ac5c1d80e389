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

class RequestRace : public testing::TestWithParam<bool> {};

// Every way to answer and not to answer, while providers are added, removed, stopped and started: each request ends in
// one reply or one error, and when all is over no message is left.
TEST_P(RequestRace, EndsInOneReplyOrOneError) {
    const auto alive = std::make_shared<int>(0);
    Worker<> worker;
    const auto connector =
        GetParam() ? std::shared_ptr<Connector>(std::make_shared<ConnectorImpl>()) : std::make_shared<ConnectorImpl2>();
    const std::pair<const char*, std::function<std::shared_ptr<ServiceProvider>()>> services[] = {
        {"echo", echo},
        {"keep", [] { return provider([](auto&&...) { return ready("kept"); }); }}, // never takes its message
        {"throw", [] { return thrower(std::runtime_error("boom")); }},
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
                 const auto state = std::make_shared<detail::SharedFutureState<MessagePtr>>();
                 worker.post(std::packaged_task<void()>(
                     [state, taken = std::move(message)]() mutable { state->setValue(std::move(taken)); }));
                 return Reply(state);
             });
         }},
    };
    std::atomic<int> outcomes{0};
    const int perRound = 20;
    const LogCapture silence(0);
    const auto route = [&](int round) {
        for (int i = 0; i < perRound; ++i) {
            try {
                connector
                    ->handle(std::make_unique<TextMessage>("x", alive),
                             Address(services[static_cast<std::size_t>(round + i) % std::size(services)].first),
                             nullptr)
                    .get();
                ++outcomes;
            } catch (...) {
                ++outcomes;
            }
        }
    };
    const auto change = [&](int) {
        for (const auto& [name, make] : services) {
            connector->addServiceProvider(name, make());
            connector->stop();
            connector->start();
            connector->removeServiceProvider(name);
        }
    };
    race(rounds(30), {route, route, route, change});
    EXPECT_EQ(outcomes, 3 * perRound * rounds(30));
    EXPECT_EQ(alive.use_count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Connectors, RequestRace, testing::Bool(),
                         [](const auto& exchange) { return exchange.param ? "OverTheExchange" : "InProcess"; });

} // namespace
} // namespace connector::test
