#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench::floor {

/// The least that an address needs: its text and a position. Its functions are in the floor's library, as those of
/// connector::Address are in the interface library, so both routers call them across a library boundary.
class Address {
public:
    explicit Address(std::string text) noexcept;
    Address(Address&& other) = default;

    /// The hash of the first segment.
    std::uint64_t hash() const noexcept;

    /// Drops the first segment.
    void drop() noexcept;

private:
    std::string text;
    std::size_t position = 0;
};

} // namespace bench::floor
