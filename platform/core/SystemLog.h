// The operating system's log.
#pragma once

#include <string>

namespace kvl::core {

// Writes one line, which holds no control bytes.
void writeToSystemLog(const std::string& line);

}  // namespace kvl::core
