#include "encoding/Boundary.h"

#include <string.h>

#include <cstddef>

namespace kvl::encoding {
namespace {

// Places that are looked at together. Fewer cost more instructions, more cost more searches for
// texts that were not there.
constexpr std::size_t kWindow = 256;

bool holds(std::string_view bytes, std::string_view text) noexcept {
  // Nothing at all may be at no address, which is none for memmem(3).
  return bytes.size() >= text.size() &&
         memmem(bytes.data(), bytes.size(), text.data(), text.size()) != nullptr;
}

// Whether at any of the window's places the first and the last byte are those of `text`, for which
// the window has room at each of them. Without branches, so that compilers make vector instructions
// of it.
bool mayBeginIn(std::string_view window, std::string_view text) noexcept {
  const char* begins = window.data();
  const char* ends = begins + text.size() - 1;
  const char first = text.front();
  const char last = text.back();
  unsigned char hits = 0;
  for (std::size_t i = 0; i < kWindow; ++i) {
    const bool hit = (begins[i] == first) & (ends[i] == last);
    hits |= static_cast<unsigned char>(hit);
  }
  return hits != 0;
}

}  // namespace

std::string drawBoundary(const core::ByteSource& random) {
  constexpr std::string_view kCharacters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::string boundary;
  while (boundary.size() < kBoundaryLength)
    boundary += kCharacters[core::uniformDraw(kCharacters.size(), random)];
  return boundary;
}

bool occursIn(std::string_view bytes, std::string_view text) noexcept {
  const std::size_t span = kWindow + text.size() - 1;
  while (bytes.size() >= span) {
    const auto window = bytes.substr(0, span);
    if (mayBeginIn(window, text) && holds(window, text)) return true;
    bytes.remove_prefix(kWindow);
  }
  return holds(bytes, text);
}

}  // namespace kvl::encoding
