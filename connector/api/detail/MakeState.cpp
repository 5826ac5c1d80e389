#include <connector/api/Message.h>
#include <connector/api/detail/MakeState.h>

namespace connector::detail {

template CONNECTOR_API_EXPORT std::shared_ptr<SharedFutureState<std::unique_ptr<Message>>> makeState();

template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::logic_error);
template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::invalid_argument);
template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::out_of_range);
template CONNECTOR_API_EXPORT std::exception_ptr makeException(std::runtime_error);

} // namespace connector::detail
