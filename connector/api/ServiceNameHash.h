#pragma once

#include <connector/Export.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace connector {

/// The key under which ConnectorImpl2 registers and finds a service. Addresses and the registry both use this function.
///
/// One leading '?', which marks an optional service, is ignored: "?name" and "name" are the same service. A second '?'
/// is a character like any other. Bytes above 0x7F count as negative numbers. Different names may have the same hash,
/// as "aB" and "b!" have; the registry then refuses the second name.
constexpr std::uint64_t serviceNameHash(std::string_view name) noexcept {
    if (!name.empty() && name.front() == '?')
        name.remove_prefix(1);
    const auto byte = [&name](std::size_t i) { return static_cast<std::uint64_t>(static_cast<signed char>(name[i])); };
    std::uint64_t hash = 5381;
    std::size_t i = 0;
    // Four steps at once, so that a multiplication doesn't wait for the result of the previous one.
    for (; i + 4 <= name.size(); i += 4)
        hash = hash * (33 * 33 * 33 * 33) + byte(i) * (33 * 33 * 33) + byte(i + 1) * (33 * 33) + byte(i + 2) * 33 +
               byte(i + 3);
    for (; i < name.size(); ++i)
        hash = hash * 33 + byte(i);
    return hash;
}

} // namespace connector
