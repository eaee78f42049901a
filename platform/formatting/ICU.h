// Between ICU's types and the standard library's.
#pragma once

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <string>

namespace kvl::formatting {

// The locale of a POSIX or BCP 47 name. Names that ICU does not take at all, overlong ones, give
// the root locale, since it would not survive the bogus one.
[[nodiscard]] icu::Locale icuLocale(const std::string& name);

[[nodiscard]] std::string utf8(const icu::UnicodeString& text);

}  // namespace kvl::formatting
