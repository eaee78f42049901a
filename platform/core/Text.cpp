#include "platform/core/SystemText.h"
#include "platform/core/UTF8.h"

#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>
#include <local/platform/Translation.h>

#include <algorithm>
#include <array>

namespace kvl {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";
constexpr std::string_view kBase64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kGroupBytes = 3;
constexpr std::size_t kGroupDigits = 4;

// Four digits for one to three bytes.
void appendGroup(std::string& text, std::span<const std::uint8_t> bytes) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < kGroupBytes; ++i)
    bits = bits << 8 | (i < bytes.size() ? bytes[i] : 0U);
  for (std::size_t i = 0; i < kGroupDigits; ++i)
    text += i <= bytes.size() ? kBase64Digits[bits >> (18 - 6 * i) & 63] : '=';
}

constexpr std::uint8_t kNoDigit = 64;

constexpr std::array<std::uint8_t, 256> valuesOfDigits() {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  std::uint8_t value = 0;
  for (const char digit : kBase64Digits) values[static_cast<unsigned char>(digit)] = value++;
  return values;
}
constexpr auto kDigitValues = valuesOfDigits();

// Appends the bytes of two to four digits. False where there is no digit, or bits are left over.
bool appendBytes(Bytes& bytes, std::string_view digits) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < kGroupDigits; ++i) {
    const std::uint8_t value =
        i < digits.size() ? kDigitValues[static_cast<unsigned char>(digits[i])] : 0;
    if (value == kNoDigit) return false;
    bits = bits << 6 | value;
  }
  const std::size_t count = digits.size() - 1;
  for (std::size_t i = 0; i < count; ++i)
    bytes.push_back(static_cast<std::uint8_t>(bits >> (16 - 8 * i)));
  return (bits & (0xFFFFFFU >> (8 * count))) == 0;
}

// The notary's reply has arrived, and holds no URL that can be used.
bool hasNoURL(const Error& error) {
  return error.is(NSPOSIXErrorDomain, NSURLErrorUnsupportedURL);
}

// The text of the parser or library that failed says more than domain and code.
std::optional<std::string> reasonOf(const Error& error) {
  if (hasNoURL(error)) return std::nullopt;
  if (auto reason = error.localizedFailureReason()) return reason;
  const auto text = error.userInfo()[NSDebugDescriptionErrorKey].string();
  return text ? std::optional(std::string(*text)) : std::nullopt;
}

// Whether its description consists of domain and code.
bool isWordless(const Error& error) {
  const bool isStatus =
      error.domain() == NSOSStatusErrorDomain && !core::statusText(error.code()).empty();
  return !error.userInfo()[NSLocalizedDescriptionKey].string() && !isStatus &&
         !error.localizedFailureReason();
}

// Without domain and code, which the description of an error without words consists of.
std::string wordsOf(const Error& error, const std::optional<std::string>& reason) {
  if (hasNoURL(error)) return translated("No URL that can be used was given.");
  if (isWordless(error)) return reason.value_or(translated("The operation couldn't be completed."));
  const std::string numbers =
      " (" + error.domain() + " error " + std::to_string(error.code()) + ".)";
  std::string text = error.localizedDescription();
  if (!text.ends_with(numbers)) return text;
  return reason.value_or(text.substr(0, text.size() - numbers.size()));
}

}  // namespace

std::string base64(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve((bytes.size() + kGroupBytes - 1) / kGroupBytes * kGroupDigits);
  for (; !bytes.empty(); bytes = bytes.subspan(std::min(kGroupBytes, bytes.size())))
    appendGroup(text, bytes.first(std::min(kGroupBytes, bytes.size())));
  return text;
}

std::optional<Data> dataFromBase64(std::string_view text) {
  if (text.size() % kGroupDigits != 0) return std::nullopt;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  Bytes bytes;
  bytes.reserve(text.size() / kGroupDigits * kGroupBytes);
  text.remove_suffix(padding);
  for (; !text.empty(); text.remove_prefix(std::min(kGroupDigits, text.size())))
    if (!appendBytes(bytes, text.substr(0, kGroupDigits))) return std::nullopt;
  return Data(std::move(bytes));
}

bool isUTF8(std::string_view text) noexcept {
  return core::isUTF8(text);
}

std::string validUTF8(std::string_view text) {
  if (isUTF8(text)) return std::string(text);
  std::string valid;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    valid += length == 0 ? kReplacementCharacter : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return valid;
}

ErrorWords errorWords(const Error& error) {
  auto reason = reasonOf(error);
  auto words = wordsOf(error, reason);
  return {std::move(words), std::move(reason)};
}

std::string errorText(const Error& error) {
  auto [text, why] = errorWords(error);
  if (why && text.find(*why) == std::string::npos) text += " (" + *why + ")";
  return text + " [" + error.domain() + " " + std::to_string(error.code()) + "]";
}

}  // namespace kvl
