#include <fl/except/IException.h>
#include <fl/except/IInternalException.h>

// Out of line, so that the type information that handlers compare exists once, in this library.

namespace fl::except {

IException::~IException() = default;
IInternalException::~IInternalException() = default;

} // namespace fl::except
