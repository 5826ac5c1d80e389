#include <connector/api/ServiceProvider.h>

namespace connector {

ServiceProvider::~ServiceProvider() = default;
void ServiceProvider::start() {}
void ServiceProvider::stop() {}

} // namespace connector
