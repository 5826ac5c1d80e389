#pragma once

#include <foundation/Export.h>

#include <iosfwd>

namespace foundation::msg_svc::exchange {

/// The reply of a queue to the submitter of a message. Derive from it; the submitter finds the actual type by
/// dynamic_cast.
class FOUNDATION_EXPORT Reply {
public:
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;
    virtual ~Reply();

    /// Writes the reply in readable form, after `indentation` blanks: the type's name, unless overridden.
    virtual void toString(std::ostream& stream, int indentation) const;

protected:
    Reply() = default;

    /// Whether both have the same content, for derived classes that offer a comparison. Unless overridden, true only
    /// for the same object.
    virtual bool protectedEquals(const Reply& other) const;
};

} // namespace foundation::msg_svc::exchange
