#include "notary/Base64Lines.h"

#include <local/platform/Text.h>

#include <algorithm>
#include <string_view>

namespace kvl::notary {
namespace {

constexpr std::size_t kBytesInLine = 48;

}  // namespace

std::string base64Lines(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (std::string_view lineEnd; !bytes.empty(); lineEnd = "\r\n") {
    const auto line = bytes.first(std::min(kBytesInLine, bytes.size()));
    text.append(lineEnd).append(base64(line));
    bytes = bytes.subspan(line.size());
  }
  return text;
}

}  // namespace kvl::notary
