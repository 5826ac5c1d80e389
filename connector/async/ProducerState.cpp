#include <connector/api/Message.h>
#include <connector/async/detail/ProducerState.h>

namespace connector::detail {

template CONNECTOR_ASYNC_EXPORT std::shared_ptr<ProducerState<std::unique_ptr<Message>>> makeProducerState();

} // namespace connector::detail
