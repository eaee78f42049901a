// The desktop's own way with URLs.
#pragma once

#include <string>

namespace kvl::interface {

// Has the program open it that the user has chosen for such URLs. Whether it was started; if not,
// the log tells why. Needs GIO: false where that part of the library is not to be had.
[[nodiscard]] bool openOnDesktop(const std::string& url);

}  // namespace kvl::interface
