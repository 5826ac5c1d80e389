#include <connector/api/Address.h>
#include <connector/api/ServiceNameHash.h>

#include <utility>

namespace connector {

Address::Address(std::string text) noexcept : text(std::move(text)), position(this->text.empty() ? exhausted : 0) {}

Address::Address(Address&& other) noexcept
    : text(std::move(other.text)), position(std::exchange(other.position, exhausted)) {}

// A copy first: assigning member by member would leave a position that doesn't fit the text if copying the text threw.
Address& Address::operator=(const Address& other) {
    return *this = Address(other);
}

Address& Address::operator=(Address&& other) noexcept {
    if (this != &other) {
        text = std::move(other.text);
        position = std::exchange(other.position, exhausted);
    }
    return *this;
}

std::string Address::pop() {
    std::string segment(first());
    dropFirst();
    return segment;
}

std::uint64_t Address::peekHash() const noexcept {
    return serviceNameHash(first());
}

std::string Address::toString() const {
    return std::string(rest());
}

void Address::dropFirst() noexcept {
    if (empty())
        return;
    const std::size_t slash = std::string_view(text).find('/', position);
    position = slash == std::string::npos ? exhausted : slash + 1;
}

} // namespace connector
