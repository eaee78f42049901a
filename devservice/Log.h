// Readable lines on standard error.
#pragma once

#include <string_view>

namespace devservice {

// Who is speaking; set once, before anything is logged.
void setLogName(std::string_view name);

// One line with the time of day. What is not printable is escaped, so that one call is one line.
// May be called from any thread.
void log(std::string_view text);

}  // namespace devservice
