/// @file
/// Typed access to document dictionaries.
#pragma once

#include <local/platform/Date.h>
#include <local/platform/Export.h>
#include <local/platform/Geometry.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <optional>
#include <string_view>

/// Operations on what the service sends and receives. None keeps any state.
///
/// **Accessors.** Each takes a dictionary (or none), a key and a fallback, and returns the stored
/// value if it has the expected type, else the fallback. They never fail: a value of another type
/// is reported in one line of the log and then treated as absent. A null value is absent, and so is
/// every value of no dictionary; neither is reported. Nothing is converted beyond what is said
/// here: "42" is no integer, a number is no date. Booleans are numbers. What is returned is the
/// stored object itself. They may run on any thread at once and change nothing.
namespace KVLEncoding {

/// Domain of the errors of form submission. A variable, which a host may set before it uses the
/// framework.
extern KVL_EXPORT std::string_view KVLEncodingErrorDomain;

/// A dictionary or none, as a parameter. It refers to the caller's dictionary, which must stay
/// where it is during the call.
class DictionaryOrNone {
 public:
  /// None.
  DictionaryOrNone(std::nullopt_t) noexcept {}
  /// `dictionary`. A temporary lives as long as the call, which is enough.
  DictionaryOrNone(const kvl::Dictionary& dictionary) noexcept : dictionary_(&dictionary) {}
  /// What the optional holds, or none.
  DictionaryOrNone(const std::optional<kvl::Dictionary>& dictionary) noexcept
      : dictionary_(dictionary ? &*dictionary : nullptr) {}

  /// Whether there is one.
  explicit operator bool() const noexcept { return dictionary_ != nullptr; }
  /// The caller's dictionary. @pre there is one
  [[nodiscard]] const kvl::Dictionary& operator*() const noexcept { return *dictionary_; }
  /// A member of it. @pre there is one
  [[nodiscard]] const kvl::Dictionary* operator->() const noexcept { return dictionary_; }

 private:
  const kvl::Dictionary* dictionary_ = nullptr;
};

/// `existsInDictionary:key:` Whether any value but null is stored under `key`.
[[nodiscard]] KVL_EXPORT bool existsInDictionary(DictionaryOrNone dictionary, std::string_view key);

/// `stringFromDictionary:key:fallback:` Log line: "expect %@ as string in dictionary %@".
[[nodiscard]] KVL_EXPORT std::optional<kvl::String> stringFromDictionary(
    DictionaryOrNone dictionary, std::string_view key,
    const std::optional<kvl::String>& fallback = std::nullopt);

/// `boolFromDictionary:key:fallback:` A number's truth: non-zero is true. Log line: "expect %@ as
/// boolean in dictionary %@".
[[nodiscard]] KVL_EXPORT bool boolFromDictionary(DictionaryOrNone dictionary, std::string_view key,
                                                 bool fallback);

/// `optionalBoolFromDictionary:key:fallback:` The stored number as it is: 2 stays 2. Log line:
/// "expect %@ as boolean in dictionary %@".
[[nodiscard]] KVL_EXPORT std::optional<kvl::Number> optionalBoolFromDictionary(
    DictionaryOrNone dictionary, std::string_view key,
    const std::optional<kvl::Number>& fallback = std::nullopt);

/// `integerFromDictionary:key:fallback:` A number's integer value, a fraction truncated toward zero
/// and the result clamped to the type's range. Log line: "expect %@ as integer in dictionary %@".
[[nodiscard]] KVL_EXPORT std::int64_t integerFromDictionary(DictionaryOrNone dictionary,
                                                            std::string_view key,
                                                            std::int64_t fallback);

/// `rectFromDictionary:key:fallback:` The rectangle of the integers under `key` with "X", "Y",
/// "Width" and "Height" appended ("frame" reads "frameX" and so on). Where one of the four keys is
/// missing the fallback is returned whole; a key whose value is null or of another type counts as
/// 0, the latter with the log line of `integerFromDictionary`.
[[nodiscard]] KVL_EXPORT kvl::Rect rectFromDictionary(DictionaryOrNone dictionary,
                                                      std::string_view key, kvl::Rect fallback);

/// `dateFromDictionary:key:fallback:` A date, or a string in RFC 3339 form (see
/// `KVLExtensions::dateFromRFC3339`). Log lines: "expect %@ as RFC3339 date in dictionary %@" for
/// another string (the empty one is absent without a line), "expect %@ as date in dictionary %@"
/// for another type.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Date> dateFromDictionary(
    DictionaryOrNone dictionary, std::string_view key,
    std::optional<kvl::Date> fallback = std::nullopt);

/// `dictionaryFromDictionary:key:fallback:` Log line: "expect %@ as dictionary in dictionary %@".
[[nodiscard]] KVL_EXPORT std::optional<kvl::Dictionary> dictionaryFromDictionary(
    DictionaryOrNone dictionary, std::string_view key,
    const std::optional<kvl::Dictionary>& fallback = std::nullopt);

/// `arrayFromDictionary:key:fallback:` Log line: "expect %@ as array in dictionary %@".
[[nodiscard]] KVL_EXPORT std::optional<kvl::Array> arrayFromDictionary(
    DictionaryOrNone dictionary, std::string_view key,
    const std::optional<kvl::Array>& fallback = std::nullopt);

}  // namespace KVLEncoding
