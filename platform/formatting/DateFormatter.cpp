#include <local/platform/DateFormatter.h>

namespace kvl {

DateFormatter::~DateFormatter() = default;

}  // namespace kvl
