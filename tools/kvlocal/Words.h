// The program's own texts in the user's language. What is for programs is never translated: JSON,
// states, and what a shell reads.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Log.h>
#include <local/platform/Translation.h>

#include <string>
#include <string_view>

namespace kvlocal {

using kvl::translatable;

// The text, with `%@` for each argument.
template <class... Arguments>
[[nodiscard]] std::string tr(std::string_view english, const Arguments&... arguments) {
  if constexpr (sizeof...(arguments) == 0) {
    return kvl::translated(english);
  } else {
    return kvl::format(kvl::translated(english), arguments...);
  }
}

// What an error number of the system means.
[[nodiscard]] inline std::string systemWords(int error) {
  return kvl::Error(kvl::NSPOSIXErrorDomain, error).localizedFailureReason().value_or("");
}

}  // namespace kvlocal
