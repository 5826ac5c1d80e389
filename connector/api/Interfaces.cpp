#include <connector/api/Connector.h>
#include <connector/api/Context.h>
#include <connector/api/Message.h>

// Out of line: each interface's virtual table and type information then exist once, in this library, and exceptions,
// casts and deletions work across libraries.

namespace connector {

Message::~Message() = default;

Context::Context() = default;
Context::~Context() = default;

Connector::Connector() = default;
Connector::~Connector() = default;

} // namespace connector
