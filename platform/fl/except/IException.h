#pragma once

#include <fl/Export.h>

namespace fl::except {

/// What exceptions of the platform's libraries have in common, whatever else they derive from: whoever catches this
/// gets them all, and a text.
class FL_EXPORT IException {
public:
    virtual ~IException();

    /// Says what went wrong. Good as long as the exception.
    virtual const char* what() const noexcept = 0;
};

} // namespace fl::except
