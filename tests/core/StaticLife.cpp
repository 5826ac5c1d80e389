// A process for each way in which a connector may live and die with the process itself. The first argument says which.

#include "support/Messages.h"

#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <thread>

using namespace connector;
using namespace connector::test;

namespace {

std::shared_ptr<ConnectorImpl2> newHost() {
    auto host = std::make_shared<ConnectorImpl2>();
    host->addServiceProvider("p", provider());
    return host;
}

void require(bool condition, const char* what) {
    if (!condition) {
        std::cerr << what << '\n';
        std::_Exit(3);
    }
}

/// Routes one message that is answered and one that isn't, which is logged.
void use(Connector& host) {
    require(outcome(send(host, "p/x")) == "hello@x", "a message was not answered");
    require(outcome(send(host, "nobody")).find("not found") != std::string::npos, "a message was answered by nobody");
}

/// Uses a connector as it dies; set by those whose order it is.
struct LastUser {
    std::function<void()> atExit;
    ~LastUser() {
        if (atExit)
            atExit();
    }
};

LastUser diesLater; // made before the global below, so it dies after it
const std::shared_ptr<ConnectorImpl2> global = newHost();
LastUser diesEarlier;

std::shared_ptr<ConnectorImpl2>& functionStatic() {
    static std::shared_ptr<ConnectorImpl2> host = newHost();
    return host;
}

const std::map<std::string, std::function<void()>> orders = {
    {"global", [] { use(*global); }},
    {"function-static", [] { use(*functionStatic()); }},
    {"from-an-earlier-destructor", [] { diesEarlier.atExit = [] { use(*global); }; }},
    {"from-a-later-destructor", [] { use(*global), diesLater.atExit = [host = global] { use(*host); }; }},
    {"made-in-a-destructor", [] { diesLater.atExit = [] { use(*newHost()); }; }},
    {"exit-while-routing",
     [] {
         for (int i = 0; i < 3; ++i)
             std::thread([host = newHost()] {
                 for (;;)
                     use(*host);
             }).detach();
         use(*global);
         std::exit(0); // NOLINT(concurrency-mt-unsafe): while they route, which is the point
     }},
};

} // namespace

int main(int argc, char** argv) {
    fl::log::setEnabledSeverityMask("connector::framework", argc > 2 ? 0x308 : 0);
    orders.at(argv[1])();
    return 0;
}
