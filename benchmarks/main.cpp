#include <benchmark/benchmark.h>
#include <boost/version.hpp>

#include <string>
#include <thread>

int main(int argc, char** argv) {
    // The standard library avoids atomic operations until the program starts a second thread, as hosts do.
    std::thread([] {}).join();
#if defined(__clang__)
    benchmark::AddCustomContext("compiler", "clang " __clang_version__);
#else
    benchmark::AddCustomContext("compiler", "g++ " __VERSION__);
#endif
    benchmark::AddCustomContext("boost", BOOST_LIB_VERSION);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
