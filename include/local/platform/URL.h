/// @file
/// URLs after RFC 3986.
#pragma once

#include <local/platform/Export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvl {

/// A URI reference (RFC 3986): absolute or relative. Immutable. The text is kept as it was given;
/// nothing is normalised, encoded or decoded.
///
/// The grammar is strict: a text with a space, a control character, a byte outside ASCII, a stray
/// `%` or any other character that the RFC does not allow is no URL.
class KVL_EXPORT URL {
 public:
  /// The URL with this text, or none when the text does not follow the grammar. The empty text is
  /// a valid (relative) reference.
  [[nodiscard]] static std::optional<URL> parse(std::string_view text);

  /// Resolves this reference against `base` by the strict algorithm of RFC 3986, 5.2. An absolute
  /// reference comes back with its text unchanged.
  [[nodiscard]] URL resolvedAgainst(const URL& base) const;

  /// The text, as it was parsed or put together; nothing is normalised.
  [[nodiscard]] const std::string& absoluteString() const noexcept { return text_; }
  /// Whether it has a scheme.
  [[nodiscard]] bool isAbsolute() const noexcept { return scheme().has_value(); }

  /// @name Components, as they stand in the text. Views stay valid while this object lives.
  /// @{

  /// Without the colon; absent from a relative reference.
  [[nodiscard]] std::optional<std::string_view> scheme() const noexcept;
  /// User, host and port, without the slashes; absent where there are no two slashes.
  [[nodiscard]] std::optional<std::string_view> authority() const noexcept;
  /// May be empty; escapes stand as they are.
  [[nodiscard]] std::string_view path() const noexcept;
  /// Without the question mark; absent without one, empty when nothing follows it.
  [[nodiscard]] std::optional<std::string_view> query() const noexcept;
  /// Without the number sign; absent without one, empty when nothing follows it.
  [[nodiscard]] std::optional<std::string_view> fragment() const noexcept;
  /// @}

  /// The authority's host, an IPv6 address without its brackets; absent without an authority and
  /// possibly empty with one.
  [[nodiscard]] std::optional<std::string_view> host() const noexcept;
  /// The authority's port, or absent when there is none or it is beyond 65535.
  [[nodiscard]] std::optional<std::uint16_t> port() const noexcept;

  /// For the log: the text.
  [[nodiscard]] const std::string& description() const noexcept { return text_; }
  /// The same text: two spellings of one address are two URLs.
  friend bool operator==(const URL& a, const URL& b) noexcept { return a.text_ == b.text_; }

 private:
  struct Range {
    std::size_t begin = 0;
    std::size_t length = 0;
    bool present = false;
  };
  URL() = default;
  void split();
  [[nodiscard]] std::string_view slice(const Range& range) const noexcept;
  [[nodiscard]] std::optional<std::string_view> component(const Range& range) const noexcept;

  std::string text_;
  Range scheme_, authority_, path_, query_, fragment_;
};

}  // namespace kvl
