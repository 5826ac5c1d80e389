#include <connector/api/Connector.h>
#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <connector/api/ServiceProvider.h>

// The destructors stand here, out of line, so that each interface's virtual table and type information exist once, in
// this library, and exceptions, casts and deletions agree on them across library borders.

namespace connector {

Message::~Message() = default;

ServiceProvider::~ServiceProvider() = default;
void ServiceProvider::start() {}
void ServiceProvider::stop() {}

Context::Context() = default;
Context::~Context() = default;

Connector::Connector() = default;
Connector::~Connector() = default;

} // namespace connector
