#include "floor/Address.h"

#include <connector/api/ServiceNameHash.h>

#include <string_view>
#include <utility>

namespace bench::floor {

Address::Address(std::string text) noexcept : text(std::move(text)) {}

std::uint64_t Address::hash() const noexcept {
    const std::string_view left = std::string_view(text).substr(position);
    return connector::serviceNameHash(left.substr(0, left.find('/')));
}

void Address::drop() noexcept {
    const std::size_t slash = std::string_view(text).find('/', position);
    position = slash == std::string::npos ? text.size() : slash + 1;
}

} // namespace bench::floor
