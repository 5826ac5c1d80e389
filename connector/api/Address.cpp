// The exported form of what is in line elsewhere.
#define CONNECTOR_ADDRESS_INLINE
#include <connector/api/Address.h>

namespace connector {

// A copy first: assigning member by member would leave a position that doesn't fit the text if copying the text threw.
Address& Address::operator=(const Address& other) {
    return *this = Address(other);
}

std::uint64_t Address::peekHash() const noexcept {
    return serviceNameHash(first());
}

std::string Address::toString() const {
    return std::string(rest());
}

} // namespace connector
