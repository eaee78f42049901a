#include "notary/Base64Lines.h"

#include <algorithm>
#include <string_view>

namespace kvl::notary {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kBytesInGroup = 3;
constexpr std::size_t kBytesInLine = 48;

// Four characters for one to three bytes.
void appendGroup(std::string& text, std::span<const std::uint8_t> bytes) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < kBytesInGroup; ++i) {
    bits = bits << 8 | (i < bytes.size() ? bytes[i] : 0U);
  }
  for (std::size_t i = 0; i < 4; ++i) {
    text += i <= bytes.size() ? kAlphabet[bits >> (18 - 6 * i) & 0x3f] : '=';
  }
}

}  // namespace

std::string base64Lines(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += kBytesInGroup) {
    if (i > 0 && i % kBytesInLine == 0) text += "\r\n";
    appendGroup(text, bytes.subspan(i, std::min(kBytesInGroup, bytes.size() - i)));
  }
  return text;
}

}  // namespace kvl::notary
