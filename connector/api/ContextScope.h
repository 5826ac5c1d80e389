#pragma once

#include <connector/Export.h>

namespace connector {

/// Which contexts share a value. Any other value of this type is a scope without data, in which nothing can be stored.
enum class ContextScope : int {
    Process = 0,       ///< all contexts made from one process context
    SharedSession = 1, ///< a shared session, its sessions and their requests
    Session = 2,       ///< a session and its requests
    Request = 3,       ///< one request
    Local = 4,         ///< one context object
};

} // namespace connector
