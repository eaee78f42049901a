/// @file
/// The framework's own texts in the user's language: what errors, progress and the parts of the
/// user interface say. Log lines stay English, and texts of others stay as they are.
#pragma once

#include <local/platform/Export.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kvl {

/// What the framework's catalogues have for `english`, one of its own texts, in the first of the
/// user's languages that has it; `english` itself where that is the language, and where no
/// catalogue has it. `context` tells texts apart that are the same in English. Any thread; files
/// are read when a language is first used.
///
/// The user's languages are those of LANGUAGE, then LC_ALL, else LC_MESSAGES, else LANG, whatever
/// locale the process has been given, and whether or not the system has that locale.
[[nodiscard]] KVL_EXPORT std::string translated(std::string_view english,
                                                std::string_view context = {});

/// The same for a text about `count` things, in the form that the language has for that number;
/// `one` and `many` are the forms of English.
[[nodiscard]] KVL_EXPORT std::string translatedForCount(std::string_view one, std::string_view many,
                                                        std::uint64_t count,
                                                        std::string_view context = {});

/// Marks a text for the translators' tools where it stands; `translated` looks it up where it is
/// shown.
[[nodiscard]] consteval const char* translatable(const char* english) {
  return english;
}

/// For hosts with a language of their own: from now on texts, and the words of
/// `localizedUpdateCount`, follow `locales`, POSIX names with colons between them, instead of the
/// environment; "en" for a host that speaks English only. An empty text stands for the environment
/// again. Errors and progress that are there already keep or change their words as each comes to
/// show them. Any thread.
KVL_EXPORT void setMessageLocales(std::string_view locales);

}  // namespace kvl
