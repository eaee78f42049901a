// Which languages the user wants texts in.
#pragma once

#include <initializer_list>
#include <string>

namespace kvl::core {

inline constexpr const char* kCLocale = "en_US_POSIX";
// `locale`, or that for the C locale's names.
[[nodiscard]] inline std::string withoutCLocale(std::string locale) {
  if (locale == "C" || locale == "POSIX" || locale.starts_with("C.")) return kCLocale;
  return locale;
}

// The value of the first variable that has one, else the C locale's. Thread-safe while nobody
// changes the environment.
[[nodiscard]] std::string localeFrom(std::initializer_list<const char*> variables);

// The POSIX locales of the user's texts with colons between them, the most wanted first: what the
// host has set, else those of LANGUAGE, then LC_ALL, else LC_MESSAGES, else LANG. In the C locale
// LANGUAGE does not count. Thread-safe while nobody changes the environment.
[[nodiscard]] std::string userMessageLocales();

}  // namespace kvl::core
