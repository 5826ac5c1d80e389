#pragma once

#include <connector/api/Future.h>
#include <connector/api/Message.h>

#include <memory>

namespace connector {

/// The reply to a message: the future of the message with which the provider answers. get() returns that message, which
/// may be empty, or throws the failure of the request.
using Reply = Future<std::unique_ptr<Message>>;

} // namespace connector
