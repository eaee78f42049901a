/// @file
/// Texts that hosts need again and again: values as JSON, bytes as base64, errors as a line, and
/// what is UTF-8. Everything here may be called on any thread.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kvl {

/// Any value as JSON (RFC 8259), in one line and in valid UTF-8. What JSON cannot hold is shown in
/// what comes nearest: a date as a text in RFC 3339 form, in UTC and whole seconds, or empty
/// outside the years 0000 to 9999; data as base64; a real that is infinite or no number as null; an
/// object as its description; bytes that are no UTF-8 as U+FFFD. What ends lines or does something
/// to terminals (`isUnprintable`) is escaped. Entries keep their order, and values may be nested as
/// deeply as memory allows.
[[nodiscard]] KVL_EXPORT std::string jsonText(const Value& value);

/// The bytes in base64 (RFC 4648, 4), padded and in one line.
[[nodiscard]] KVL_EXPORT std::string base64(std::span<const std::uint8_t> bytes);

/// The bytes of which `base64` makes `text`. Absent for any other text: one without its padding,
/// with white space, or whose last digit has bits that stand for nothing.
[[nodiscard]] KVL_EXPORT std::optional<Data> dataFromBase64(std::string_view text);

/// Whether all of the text is UTF-8 (RFC 3629).
[[nodiscard]] KVL_EXPORT bool isUTF8(std::string_view text) noexcept;

/// `text` with U+FFFD for each byte that belongs to no character of UTF-8.
[[nodiscard]] KVL_EXPORT std::string validUTF8(std::string_view text);

/// An error in words.
struct ErrorWords {
  /// What went wrong, without domain and code.
  std::string what;
  /// Why, in the words of the system, the parser or the library that failed; they may be part of
  /// `what`. Absent when nobody said.
  std::optional<std::string> why;
};
/// The words of `error`, which may be another party's.
[[nodiscard]] KVL_EXPORT ErrorWords errorWords(const Error& error);

/// An error for a person, as in "The connection failed. (Connection refused) [NSURLErrorDomain
/// -1004]": what went wrong, why, if that says more, domain and code. The words are those of the
/// error: they may be another party's, so pass them to `printable` on their way to a terminal.
[[nodiscard]] KVL_EXPORT std::string errorText(const Error& error);

}  // namespace kvl
