#pragma once

#include <connector/api/Connector.h>
#include <connector/context/ContextImpl.h>

#include <memory>

namespace connector::internal {

/// The process context of a connector without one from the host. It holds the connector weakly: otherwise neither would
/// ever be destroyed. Throws std::bad_weak_ptr if no std::shared_ptr owns the connector.
inline std::shared_ptr<Context> makeProcessContext(Connector& connector) {
    return std::make_shared<ContextImpl>(std::weak_ptr<Connector>(connector.getPtr()));
}

} // namespace connector::internal
