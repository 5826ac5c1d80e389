#include <connector/api/Message.h>
#include <connector/api/detail/SharedFutureState.h>

#include <stdexcept>

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
    // Rethrowing a null pointer is undefined; a producer may have stored one by asking for the current exception
    // outside a handler.
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

template CONNECTOR_API_EXPORT std::shared_ptr<SharedFutureState<std::unique_ptr<Message>>> makeState();

template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::logic_error);
template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::invalid_argument);
template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::out_of_range);
template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::runtime_error);

} // namespace connector::detail
