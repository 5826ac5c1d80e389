#pragma once

#include <connector/Export.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace connector {

/// The key under which a service is registered and found. Addresses and the registry both call this one function: if
/// they hashed differently, no message would reach its provider.
///
/// One leading '?' (the mark of an optional service) does not count, so "?name" and "name" are the same service; a
/// second one is a character like any other. Bytes above 0x7F count as negative numbers. Different names may share a
/// hash ("aB" and "b!" do): a registry that is keyed by it refuses the second of them.
constexpr std::uint64_t serviceNameHash(std::string_view name) noexcept {
    if (!name.empty() && name.front() == '?')
        name.remove_prefix(1);
    const auto byte = [&name](std::size_t i) { return static_cast<std::uint64_t>(static_cast<signed char>(name[i])); };
    std::uint64_t hash = 5381;
    std::size_t i = 0;
    // Four steps of the last line at once, so that each step doesn't wait for the one before.
    for (; i + 4 <= name.size(); i += 4)
        hash = hash * (33 * 33 * 33 * 33) + byte(i) * (33 * 33 * 33) + byte(i + 1) * (33 * 33) + byte(i + 2) * 33 +
               byte(i + 3);
    for (; i < name.size(); ++i)
        hash = hash * 33 + byte(i);
    return hash;
}

} // namespace connector
