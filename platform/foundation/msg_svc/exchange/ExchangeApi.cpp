#include <foundation/msg_svc/exchange/DefaultExchange.h>
#include <foundation/msg_svc/exchange/ExchangeApi.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <cstddef>
#include <new>

namespace foundation::msg_svc::exchange {
namespace {

using Exchange = boost::shared_ptr<DefaultExchange>;

/// Provides static storage for one object of each type, so that the process's exchange needs no memory that would have
/// to be freed.
template <class T>
struct StaticAllocator {
    using value_type = T;

    StaticAllocator() = default;
    template <class Other>
    explicit StaticAllocator(const StaticAllocator<Other>&) {}

    T* allocate(std::size_t) {
        alignas(T) static unsigned char storage[sizeof(T)];
        return reinterpret_cast<T*>(storage);
    }
    void deallocate(T*, std::size_t) {}
};

} // namespace

ExchangeApi::~ExchangeApi() = default;

boost::shared_ptr<ExchangeApi> ExchangeApi::instance() {
    return defaultInstance();
}

boost::shared_ptr<DefaultExchange> ExchangeApi::defaultInstance() {
    // Never destroyed: destructors of globals and threads that still run when the process ends may use it.
    alignas(Exchange) static unsigned char storage[sizeof(Exchange)];
    static const Exchange& exchange = []() -> const Exchange& {
        DefaultExchange::closeAtExit();
        return *new (storage)
            Exchange(boost::allocate_shared<DefaultExchange>(StaticAllocator<DefaultExchange>(), "default"));
    }();
    return exchange;
}

} // namespace foundation::msg_svc::exchange
