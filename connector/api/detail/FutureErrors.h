#pragma once

#include <connector/Export.h>

#include <exception>

namespace connector::detail {

// The exceptions of a future that don't depend on its type: std::runtime_error with one text each.
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureInvalid();
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureRetrieved();
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureCancelled();
[[noreturn]] CONNECTOR_API_EXPORT void throwFutureCorrupt();
[[noreturn]] CONNECTOR_API_EXPORT void throwPromiseResolved();

/// Rethrows a stored exception. If its object is itself a std::exception_ptr, throws the exception to which that
/// refers; a null one is thrown unchanged.
[[noreturn]] CONNECTOR_API_EXPORT void rethrowOutcome(std::exception_ptr exception);

} // namespace connector::detail
