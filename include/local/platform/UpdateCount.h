/// @file
/// The words of a menu item's badge.
#pragma once

#include <local/platform/Export.h>

#include <cstdint>
#include <string>

namespace kvl {

/// The number of updates as a badge says it: "1 update", "3 updates", with the plurals and the
/// digits of the language. Quick enough for each badge of a long menu. Thread-safe while nobody
/// changes the environment.
///
/// @param count any number; a negative one keeps its sign.
/// @param locale a POSIX or BCP 47 name ("pt_BR.UTF-8", "zh-Hant"). Empty for the language of the
///   user's messages, read from the environment anew each time: `LC_ALL`, else `LC_MESSAGES`, else
///   `LANG`; and unless that is the C locale, the languages of `LANGUAGE` come before it. The first
///   one whose words are known counts. "C" and "POSIX" are English without separators of thousands.
/// @return English where the words of the language are not known.
[[nodiscard]] KVL_EXPORT std::string localizedUpdateCount(std::int64_t count,
                                                          const std::string& locale = {});

}  // namespace kvl
