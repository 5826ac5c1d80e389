#pragma once

#include <connector/Export.h>

namespace connector {

/// Whom a context's value is shared with, from all to none. A value outside these five names no scope: operations of a
/// Context treat it as a scope without data, in which nothing can be stored.
enum class ContextScope : int {
    Process = 0,       ///< every context that one connector hands out
    SharedSession = 1, ///< the sessions derived from one shared session
    Session = 2,       ///< the requests of one session
    Request = 3,       ///< one request
    Local = 4,         ///< one context object
};

} // namespace connector
