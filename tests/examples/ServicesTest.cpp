#include "Worker.h"
#include "switchboard/Services.h"

#include <connector/async/Then.h>
#include <connector/core/ConnectorImpl2.h>

#include <gtest/gtest.h>

#include <atomic>
#include <iostream>

namespace switchboard {
namespace {

// A service that waited for its thread in stop() would hold the connector's lock meanwhile, for which that thread may
// wait.
TEST(LaterService, IsRemovedWhileAContinuationOfItsReplyRoutes) {
    const auto connector = std::make_shared<connector::ConnectorImpl2>();
    Worker<> worker;
    for (const char* kind : {"later", "text"})
        connector->addServiceProvider(kind, makeService(kind, worker, std::cout));
    const auto send = [&](const char* address) {
        return connector->handle(std::make_unique<Text>("x"), connector::Address(address), nullptr);
    };
    std::promise<void> attached;
    std::promise<void> begun;
    std::atomic<bool> removed{false};
    worker.post(std::packaged_task<void()>([&] { attached.get_future().wait(); }));
    auto routed = then(send("later"), [&](Reply reply) {
        begun.set_value();
        while (!removed)
            send("text/upper").get();
        return reply.get();
    });
    attached.set_value();
    begun.get_future().wait();
    connector->removeServiceProvider("later");
    removed = true;
    EXPECT_EQ(dynamic_cast<Text&>(*routed.get()).text, "x, a moment later");
}

} // namespace
} // namespace switchboard
