#include <connector/api/detail/FutureErrors.h>

#include <stdexcept>
#include <utility>

namespace connector::detail {

void throwFutureInvalid() {
    throw std::runtime_error("Future state isn't valid!");
}

void throwFutureRetrieved() {
    throw std::runtime_error("Future already returned it's value or has an associated continuation.");
}

void throwFutureCancelled() {
    throw std::runtime_error("Future has been cancelled.");
}

void throwFutureCorrupt() {
    throw std::runtime_error("Invalid Future state reached.");
}

void throwPromiseResolved() {
    throw std::runtime_error("Promise already resolved.");
}

void rethrowOutcome(std::exception_ptr exception) {
    // Rethrowing a null pointer is undefined. A producer that calls std::current_exception() outside a handler stores
    // one.
    if (!exception)
        throw exception;
    try {
        std::rethrow_exception(std::move(exception));
    } catch (const std::exception_ptr& inner) {
        if (!inner)
            throw;
        std::rethrow_exception(inner);
    }
}

} // namespace connector::detail
