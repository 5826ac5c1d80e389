#include <connector/diagnostics/internal/FrameworkLogger.h>

namespace connector::internal {

fl::log::basic_diagnostic_logger<char> frameworkLogger("connector::framework");

} // namespace connector::internal
