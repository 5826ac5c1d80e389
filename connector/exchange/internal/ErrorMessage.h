#pragma once

#include <foundation/msg_svc/exchange/Reply.h>

#include <string>

namespace connector {

/// The reply to a request that failed. Only the text of the failure crosses the exchange.
class ErrorMessage : public foundation::msg_svc::exchange::Reply {
public:
    ErrorMessage(const std::string& text) : text(text) {}

    const std::string& getText() const noexcept { return text; }

private:
    const std::string text;
};

} // namespace connector
