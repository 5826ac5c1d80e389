#pragma once

#include <connector/Export.h>
#include <connector/api/ServiceNameHash.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace connector {

/// The address of a message: text segments joined by '/'. Each routing step removes the first segment, which names a
/// service; the provider receives the rest. A segment that begins with '?' names an optional service.
///
/// n slashes make n + 1 segments: "a/b" is a, b; "/a" is an empty segment, then a; "a/" is a, then an empty segment.
/// The empty text has no segments.
///
/// A value type: copies are independent, and a moved-from address is empty. If the text fits a small string, creating
/// the address, moving it and removing its segments by popHash() allocate nothing. Threads: one writer or any number of
/// readers at a time.
class CONNECTOR_API_EXPORT Address {
public:
    /// An address without segments.
    Address() noexcept;

    /// The segments of `text`. Nothing is escaped, and every text is accepted.
    explicit Address(std::string text) noexcept;

    /// Copies the remaining segments of `other`.
    Address(const Address& other);

    /// Moves the remaining segments out of `other`, which is empty afterwards.
    Address(Address&& other) noexcept;

    /// As the copy constructor. If it throws std::bad_alloc, nothing has changed.
    Address& operator=(const Address& other);

    /// As the move constructor. An address that is moved to itself is unchanged.
    Address& operator=(Address&& other) noexcept;

    ~Address();

    /// Whether no segment is left.
    bool empty() const noexcept { return position == exhausted(); }

    /// Removes the first segment and returns its text as written, including a leading '?'. Returns the empty text if no
    /// segment is left. Throws std::bad_alloc; the segment is then still there.
    std::string pop();

    /// serviceNameHash() of the first segment, or of the empty text if no segment is left. The time is proportional to
    /// the length of the segment.
    [[gnu::pure]] std::uint64_t peekHash() const noexcept;

    /// Removes the first segment and returns the hash that peekHash() would have returned. Inline, so that the compiler
    /// omits the hash for a caller that ignores it.
    std::uint64_t popHash() noexcept;

    /// The remaining segments, joined by '/'.
    std::string toString() const;

private:
    // A function, because a static data member would be a unique symbol in code compiled without optimisation. A
    // library with a unique symbol is never unloaded.
    static constexpr std::size_t exhausted() noexcept { return std::string::npos; }

    std::string_view rest() const noexcept {
        return empty() ? std::string_view() : std::string_view(text.data() + position, text.size() - position);
    }
    std::string_view first() const noexcept { return rest().substr(0, rest().find('/')); }

    // `segment` is first().
    void drop(std::string_view segment) noexcept {
        if (empty())
            return;
        position += segment.size();
        position = position == text.size() ? exhausted() : position + 1;
    }

    std::string text;
    // The start of the first remaining segment in `text`. It is the size of the text if only an empty segment is left.
    std::size_t position = exhausted();
};

// Inline for speed. The library also exports all of them, for callers that look them up by name and for compilers that
// don't inline them: Address.cpp compiles these definitions without the keyword.
#if !defined(CONNECTOR_ADDRESS_INLINE)
#define CONNECTOR_ADDRESS_INLINE inline
#endif

// NOLINTBEGIN(misc-definitions-in-headers): without the keyword only in Address.cpp
CONNECTOR_ADDRESS_INLINE Address::Address() noexcept = default;

CONNECTOR_ADDRESS_INLINE Address::Address(std::string text) noexcept
    : text(std::move(text)), position(this->text.empty() ? exhausted() : 0) {}

CONNECTOR_ADDRESS_INLINE Address::Address(const Address& other) = default;

CONNECTOR_ADDRESS_INLINE Address::Address(Address&& other) noexcept
    : text(std::move(other.text)), position(std::exchange(other.position, exhausted())) {}

CONNECTOR_ADDRESS_INLINE Address& Address::operator=(Address&& other) noexcept {
    if (this != &other) {
        text = std::move(other.text);
        position = std::exchange(other.position, exhausted());
    }
    return *this;
}

CONNECTOR_ADDRESS_INLINE Address::~Address() = default;

CONNECTOR_ADDRESS_INLINE std::string Address::pop() {
    const std::string_view segment = first();
    std::string taken(segment);
    drop(segment);
    return taken;
}

CONNECTOR_ADDRESS_INLINE std::uint64_t Address::popHash() noexcept {
    const std::string_view segment = first();
    drop(segment);
    return serviceNameHash(segment);
}

// NOLINTEND(misc-definitions-in-headers)

#undef CONNECTOR_ADDRESS_INLINE

} // namespace connector
