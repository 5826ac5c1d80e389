#pragma once

#include <fl/Export.h>
#include <fl/except/IException.h>

namespace fl::except {

/// An exception that reports a fault in the program itself, not in its input.
class FL_EXPORT IInternalException : public IException {
public:
    ~IInternalException() override;
};

} // namespace fl::except
