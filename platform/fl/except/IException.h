#pragma once

#include <fl/Export.h>

namespace fl::except {

/// The interface of all exceptions of the platform's libraries, in addition to their other bases. A handler of this
/// type catches all of them and gets their text.
class FL_EXPORT IException {
public:
    virtual ~IException();

    /// The description of the failure. Valid as long as the exception.
    virtual const char* what() const noexcept = 0;
};

} // namespace fl::except
