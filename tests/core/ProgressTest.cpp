#include "support/LogCapture.h"
#include "support/Messages.h"
#include "support/Rounds.h"

#include <connector/core/ConnectorImpl2.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

namespace connector::test {
namespace {

/// Tells when its process context is made, which happens under the lock.
struct Observed : ConnectorImpl2 {
    std::function<void()> onMaking = [] {};
    std::shared_ptr<Connector> getPtr() override {
        onMaking();
        return ConnectorImpl2::getPtr();
    }
};

/// Holds the lock shared until every operation of `arrivals` waits for it, then lets them run. Returns their order, as
/// they had the lock. An operation is a letter: a reader (r) routes a message, a writer removes a service (w), adds one
/// under a taken name (t) or makes the process context (c).
std::string orderOf(const std::string& arrivals) {
    const auto connector = std::make_shared<Observed>();
    const auto special = provider();
    connector->addServiceProvider("special", special);
    std::string order; // each operation appends its letter under the lock
    std::mutex mutex;
    const auto had = [&](char letter) {
        const std::lock_guard<std::mutex> lock(mutex);
        order += letter;
    };
    LogCapture log(0x308, [&](const LogCapture::Record& record) {
        had(record.text[0] == 'M' ? 'r' : record.text[0] == 'R' ? 'w' : record.text[0] == 'S' ? 't' : '+');
    });
    connector->onMaking = [&] { had('c'); };
    std::vector<std::thread> threads;
    special->onStop = [&] {
        for (const char letter : arrivals)
            threads.push_back(startAndAwaitSleep([&, letter] {
                if (letter == 'r')
                    send(*connector, "nobody");
                else if (letter == 'w')
                    connector->removeServiceProvider("none");
                else if (letter == 't')
                    told([&] { connector->addServiceProvider("?special", provider()); });
                else
                    connector->newContext();
            }));
    };
    connector->stop(); // calls the provider with the lock held
    for (std::thread& thread : threads)
        thread.join();
    order.erase(std::remove(order.begin(), order.end(), '+'), order.end()); // written before the lock is asked for
    return order;
}

// Neither overtakes: no reader a writer that waits, and no second writer the readers that waited for the first.
TEST(RaceForTheLock, IsServedInTheOrderOfArrival) {
    const struct {
        const char *arrivals, *order;
    } cases[] = {
        {"wrrrr", "wrrrr"},      // readers that come later wait for the writer
        {"crrrr", "crrrr"},      // also while it waits for its upgrade
        {"trrwrrw", "trrrrww"},  // all that wait are admitted between two writers
        {"wtcwtcwt", "wtcwtwt"}, // writers are served in turn; the second 'c' finds a context
        {"crwrtr", "crrrwt"},
    };
    for (const auto& expected : cases)
        for (int round = 0; round < rounds(10); ++round)
            EXPECT_EQ(orderOf(expected.arrivals), expected.order) << expected.arrivals;
}

} // namespace
} // namespace connector::test
