// Names, addresses and registry operations from arbitrary bytes, compared with a model of a few lines. A line of the
// input is an operation: "+NAME" registers, "-NAME" removes, any other line is an address that a message is sent to.

#include "support/Messages.h"

#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>
#include <vector>

using namespace connector;
using namespace connector::test;

namespace {

class Model {
public:
    bool add(const std::string& name) { return names.emplace(key(name), name).second; }
    void remove(const std::string& name) { names.erase(key(name)); }

    std::set<std::string> list() const {
        std::set<std::string> listed;
        for (const auto& entry : names)
            listed.insert(entry.second);
        return listed;
    }

    /// What a message to `address` gives: "NAME@REST", or the failure.
    std::string send(const std::string& address) const {
        std::vector<std::string> segments;
        if (!address.empty()) {
            std::istringstream stream(address + "/");
            for (std::string segment; std::getline(stream, segment, '/');)
                segments.push_back(segment);
        }
        for (std::size_t i = 0; i < segments.size(); ++i) {
            std::string rest;
            for (std::size_t j = i + 1; j < segments.size(); ++j)
                rest += (j > i + 1 ? "/" : "") + segments[j];
            const auto found = names.find(key(segments[i]));
            if (found != names.end())
                return found->second + "@" + rest;
            if (segments[i].empty() || segments[i][0] != '?')
                return failure("Message not delivered: service '" + segments[i] +
                               "' not found, remainder of address: " + rest);
        }
        return failure("No service specified. Address can't be empty.");
    }

private:
    // As far as what() tells: up to the first zero byte.
    static std::string failure(const std::string& text) { return std::string("invalid_argument: ") + text.c_str(); }

    static std::uint64_t key(const std::string& name) {
        std::uint64_t hash = 5381;
        for (std::size_t i = !name.empty() && name[0] == '?' ? 1 : 0; i < name.size(); ++i) {
            const int byte = static_cast<unsigned char>(name[i]);
            hash = hash * 33 + static_cast<std::uint64_t>(byte) - (byte > 127 ? 256 : 0);
        }
        return hash;
    }

    std::map<std::uint64_t, std::string> names;
};

void require(bool condition, const std::string& what) {
    if (!condition) {
        std::cerr << what << '\n';
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fl::log::setEnabledSeverityMask("connector::framework", 0);
    const auto connector = std::make_shared<ConnectorImpl2>();
    Model model;
    std::istringstream input(std::string(data, data + size));
    for (std::string line; std::getline(input, line);) {
        const std::string name = line.substr(line.empty() ? 0 : 1);
        if (line[0] == '+') {
            const auto named = provider([name](MessagePtr&& message, Address&& rest, std::shared_ptr<Context>&&) {
                return ready((text(message) == "hello" ? name : "") + "@" + rest.toString());
            });
            const bool added = told([&] { connector->addServiceProvider(name, named); }) == "done";
            require(added == model.add(name), "registering " + name);
        } else if (line[0] == '-') {
            connector->removeServiceProvider(name);
            model.remove(name);
        } else {
            const std::string got = outcome(send(*connector, line));
            require(got == model.send(line), "sending to " + line + " gave " + got + " instead of " + model.send(line));
        }
        require(connector->listServiceProviders() == model.list(), "the names after " + line);
    }
    return 0;
}
