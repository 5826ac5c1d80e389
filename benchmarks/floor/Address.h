#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench::floor {

/// What an address has to be: its text and a cursor. Its functions lie in this library, as those of connector::Address
/// lie in the framework's interface library: a call from the router crosses a border here as it does there.
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
