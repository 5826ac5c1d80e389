#pragma once

#include <connector/Export.h>
#include <connector/api/ServiceNameHash.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace connector {

/// Where a message goes: text segments joined by '/', consumed from the front as the message travels. Each routing step
/// removes the segment that named its service; the provider receives the rest. A segment that begins with '?' names an
/// optional service.
///
/// n slashes make n + 1 segments, so "a/b" is a, b; "/a" is an empty segment, then a; "a/" is a, then an empty segment.
/// The empty text makes none.
///
/// A value type: copies are independent, a moved-from address is empty. An address whose text fits a small string
/// allocates nothing to make, to move or to consume by hash. Threads: like a std::string, one writer or any number of
/// readers at a time.
class CONNECTOR_API_EXPORT Address {
public:
    /// An address without segments.
    Address() noexcept;

    /// The segments of `text`. The text is kept as it is; nothing is escaped and no form is refused.
    explicit Address(std::string text) noexcept;

    /// The segments that `other` has left.
    Address(const Address& other);

    /// Takes the segments over and leaves `other` empty.
    Address(Address&& other) noexcept;

    /// As the copy constructor. If it throws std::bad_alloc, nothing has changed.
    Address& operator=(const Address& other);

    /// As the move constructor. An address that is moved to itself stays what it was.
    Address& operator=(Address&& other) noexcept;

    ~Address();

    /// Whether no segment is left.
    bool empty() const noexcept { return position == exhausted(); }

    /// Removes the first segment and returns its text as written, a leading '?' included. With no segment left, returns
    /// the empty text. Throws std::bad_alloc when the text can't be copied; the segment then stays.
    std::string pop();

    /// serviceNameHash of the first segment, or of the empty text with no segment left. Costs time in the segment's
    /// length.
    [[gnu::pure]] std::uint64_t peekHash() const noexcept;

    /// Removes the first segment and returns the hash that peekHash() would have given. In line: a caller who has
    /// peeked already and ignores the result doesn't pay for the hash again.
    std::uint64_t popHash() noexcept;

    /// The segments still left, joined by '/'.
    std::string toString() const;

private:
    // A function: a static member would be a unique symbol in whatever is compiled without optimisation, and a library
    // with one of those is never unloaded.
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
    // Where the first segment that is left begins in `text`. It may be the text's end: a last segment that is empty.
    std::size_t position = exhausted();
};

// Inline for speed. The library also exports all of them, for callers that look them up or whose compiler inlines
// nothing: Address.cpp compiles these definitions without the keyword.
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
