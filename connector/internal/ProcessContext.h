#pragma once

#include <connector/api/Connector.h>
#include <connector/context/ContextImpl.h>

#include <memory>

namespace connector::internal {

/// The process context of a connector that was given none. It refers back to the connector only weakly: a strong link
/// would keep the two alive for ever. Throws std::bad_weak_ptr when no std::shared_ptr owns the connector.
inline std::shared_ptr<Context> makeProcessContext(Connector& connector) {
    return std::make_shared<ContextImpl>(std::weak_ptr<Connector>(connector.getPtr()));
}

} // namespace connector::internal
