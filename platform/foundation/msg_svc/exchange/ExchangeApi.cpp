#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/ExchangeApi.h>

#include <boost/smart_ptr/make_shared.hpp>

namespace foundation::msg_svc::exchange {

ExchangeApi::~ExchangeApi() = default;

boost::shared_ptr<ExchangeApi> ExchangeApi::instance() {
    return defaultInstance();
}

boost::shared_ptr<DefaultExchange> ExchangeApi::defaultInstance() {
    static const auto exchange = boost::make_shared<DefaultExchange>("default");
    return exchange;
}

} // namespace foundation::msg_svc::exchange
