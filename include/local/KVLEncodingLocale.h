/// @file
/// Texts in the user's locale.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <string>
#include <string_view>

/// **The user's locale** is that of `LC_ALL`, else `LC_TIME`, else `LANG`, whether or not the host
/// called `setlocale`; "C" and "POSIX" stand for American English. The zone is that of `TZ`, else
/// of the system. A change of the variables counts from the next text, a change of the system's
/// zone within a second. These operations may run on any thread, several at once, while no thread
/// changes the environment.
namespace KVLEncoding {

/// @name Keys of the service's documents
/// Variables, which a host may set before it uses the framework.
/// @{
extern KVL_EXPORT std::string_view KVLEncodingKeyText;    ///< "text": a text.
extern KVL_EXPORT std::string_view KVLEncodingKeyLocale;  ///< "locale": the entries for its tokens.
/// @}

/// `string:withLocales:` A template with its tokens replaced by dates, times of day and lengths of
/// time as the user writes them.
///
/// @param text     The template. Its tokens are any pieces of it that entries name.
/// @param locales  An array of entries, or the null value. Without entries the template comes back
///                 as it is, likewise for a value of another kind, with the log line "expect locale
///                 as array: %@".
///
/// An entry is a dictionary:
///
/// | key | type | meaning |
/// |---|---|---|
/// | "find" | string | the token, not empty |
/// | "type" | string | "date time", "date", "time" or "duration" |
/// | "date" | string | a date in RFC 3339 form (see `KVLExtensions::dateFromRFC3339`); optional |
/// | "seconds" | integer | what counts without a date; 0 by default |
///
/// With a date that is not empty, "date time" shows it as medium date and short time ("May 1, 2024,
/// 2:34 PM"), "date" and "time" as one of them; other types are not allowed. Without one, "time"
/// shows the time of day "seconds" after midnight, days left out, and "duration" is `duration` of
/// "seconds"; other types are not allowed.
///
/// The entries apply in order, each to what the ones before it made. An entry replaces every
/// occurrence of its token, byte for byte, in one pass: what it puts in is not searched again. A
/// token that does not occur is no mistake.
///
/// Nothing fails. An entry with a mistake is skipped, its token stays, and the log has one line:
/// - "locale missing find": no token, or the entry is no dictionary;
/// - "invalid locale date: %@": its date cannot be read;
/// - "unknown or misconfigured locale type: %@ in %@" (the entry): no type, an unknown one, or one
///   that is not allowed; also a date that the system cannot show;
/// - "locale text too long: '%@'" (the token): the text would grow beyond 1 MiB.
///
/// Values of another type are absent, with the accessors' log lines (see `KVLEncoding.h`). Two and
/// more replacements are made and reported, "locale matched multiple: %ld in '%@' in '%@'": their
/// number, the token, the text as it is then.
[[nodiscard]] KVL_EXPORT std::string stringWithLocales(std::string_view text,
                                                       const kvl::Value& locales);

/// `duration:` A whole number of seconds in words, in hours, minutes and seconds: "1 hour, 2
/// minutes, 5 seconds". Parts that are zero are left out, zero itself is "0 seconds", and a
/// negative length has one sign in front.
[[nodiscard]] KVL_EXPORT std::string duration(std::int64_t seconds);

}  // namespace KVLEncoding
