#pragma once

#include <connector/api/detail/SharedFutureState.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

namespace connector {

class Message;

namespace detail {

// A state or a stored exception is destroyed by code of the module that made it. For replies and the usual exceptions,
// that module is this library, so they outlive a plugin that answered with them.

/// Returns a new pending state.
template <class T>
std::shared_ptr<SharedFutureState<T>> makeState() {
    return std::make_shared<SharedFutureState<T>>();
}

extern template CONNECTOR_API_EXPORT std::shared_ptr<SharedFutureState<std::unique_ptr<Message>>> makeState();

/// Returns a pointer to a copy of `exception`, for SharedFutureState::setException().
template <class E>
std::exception_ptr makeException(E exception) {
    return std::make_exception_ptr(std::move(exception));
}

extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::logic_error);
extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::invalid_argument);
extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::out_of_range);
extern template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::runtime_error);

} // namespace detail
} // namespace connector
