#pragma once

#include "floor/Address.h"
#include "floor/Future.h"

#include <connector/api/Context.h>

#include <boost/thread/shared_mutex.hpp>

#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>

namespace bench::floor {

class Provider {
public:
    Provider() = default;
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;
    virtual ~Provider();
    virtual Future handle(MessagePtr&& message, Address&& address, std::shared_ptr<connector::Context>&& context) = 0;
};

/// The least code that routes a message under the connector's contract: the same primitives in a straight line, for an
/// address whose first segment names a service. It checks for no errors, and writers can starve.
class Router {
public:
    void add(std::string_view name, std::shared_ptr<Provider> provider);
    Future handle(MessagePtr&& message, Address&& address, std::shared_ptr<connector::Context>&& context);

private:
    boost::shared_mutex mutex;
    std::unordered_map<std::uint64_t, std::shared_ptr<Provider>> providers;
};

} // namespace bench::floor
