#pragma once

#include <foundation/Export.h>

#include <iosfwd>

namespace foundation::msg_svc::exchange {

/// What a queue sends back to the submitter of a message. Derive from it; the submitter finds out by dynamic_cast what
/// it got.
class FOUNDATION_EXPORT Reply {
public:
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;
    virtual ~Reply();

    /// Writes the reply for a person to read, behind `indentation` blanks: the type's name, unless overridden.
    virtual void toString(std::ostream& stream, int indentation) const;

protected:
    Reply() = default;

    /// Whether both say the same, for derived classes that offer a comparison. Only the same object does unless
    /// overridden.
    virtual bool protectedEquals(const Reply& other) const;
};

} // namespace foundation::msg_svc::exchange
