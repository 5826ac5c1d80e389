#include "support/Allocations.h"
#include "support/Host.h"

#include <connector/core/ConnectorImpl2.h>

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <thread>

/// instructions framework|floor COUNT: makes COUNT requests, for a tool that counts instructions. The difference
/// between two runs with different counts excludes the cost of starting. Prints the number of allocations per request,
/// including the caller's own.
int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    std::thread([] {}).join();
    const auto connector = bench::connectorWith(std::make_shared<connector::ConnectorImpl2>(), 1);
    bench::floor::Router router;
    router.add(bench::serviceName(0), std::make_shared<bench::FloorEcho>());

    const bool framework = std::string_view(argv[1]) == "framework";
    const std::string address = bench::serviceName(0);
    const long count = std::atol(argv[2]);
    long sum = 0;
    const connector::test::AllocationCount allocations;
    for (long i = 0; i < count; ++i)
        sum += framework ? bench::request(*connector, address) : bench::request(router, address);
    std::cout << static_cast<double>(allocations()) / static_cast<double>(count) << '\n';
    return sum == count ? 0 : 1;
}
