#include "platform/interface/images/Inflate.h"

#include "platform/interface/images/GLibPointers.h"

#include <gio/gio.h>

#include <algorithm>
#include <string>

namespace kvl::images {
namespace {

constexpr std::size_t kPieceSize = std::size_t{64} << 10;
constexpr std::size_t kOverlap = 64;

}  // namespace

bool inflate(std::string_view packed, const std::function<bool(std::string_view piece)>& take) {
  const ObjectPtr<GZlibDecompressor> unpacker(
      g_zlib_decompressor_new(G_ZLIB_COMPRESSOR_FORMAT_ZLIB));
  std::string piece(kOverlap + kPieceSize, '\0');
  std::size_t kept = 0;
  auto result = G_CONVERTER_CONVERTED;
  while (result == G_CONVERTER_CONVERTED) {
    std::fill(piece.begin() + static_cast<std::ptrdiff_t>(kept), piece.end(), '\0');
    gsize taken = 0;
    gsize made = 0;
    result = g_converter_convert(G_CONVERTER(unpacker.get()), packed.data(), packed.size(),
                                 piece.data() + kept, kPieceSize, G_CONVERTER_NO_FLAGS, &taken,
                                 &made, nullptr);
    // What came before the fault is in the buffer, but nobody says how much it is.
    if (result == G_CONVERTER_ERROR) return take(piece);
    packed.remove_prefix(taken);
    const std::string_view text(piece.data(), kept + made);
    if (!take(text)) return false;
    const auto tail = text.substr(text.size() - std::min(text.size(), kOverlap));
    kept = tail.size();
    std::ranges::copy(tail, piece.begin());
  }
  return true;
}

}  // namespace kvl::images
