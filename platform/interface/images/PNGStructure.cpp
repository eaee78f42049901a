#include "platform/interface/images/PNGStructure.h"

#include "platform/interface/images/Limits.h"

namespace kvl::images {
namespace {

constexpr std::size_t kPNGSignatureSize = 8;
constexpr std::size_t kChunkFrameSize = 12;  // of a chunk: its length, its type and its sum

constexpr std::uint32_t chunkType(const char (&name)[5]) {
  std::uint32_t type = 0;
  for (std::size_t i = 0; i < 4; ++i) type = type << 8 | static_cast<unsigned char>(name[i]);
  return type;
}

bool isEssential(std::uint32_t type) {
  constexpr std::uint32_t ancillary = 0x20000000;
  return (type & ancillary) == 0 || type == chunkType("tRNS");
}

bool hasDecodableHeader(Span bytes) {
  ByteCursor header(bytes, ByteOrder::kBig);
  header.skip(kPNGSignatureSize);
  const bool isHeader = header.number(4) == 13 && header.number(4) == chunkType("IHDR");
  const auto width = header.number(4);
  const auto height = header.number(4);
  return isHeader && isDecodable(width, height);
}

}  // namespace

bool walkPNG(Span bytes, const std::function<void(Span part)>& essential) {
  if (!hasDecodableHeader(bytes)) return false;
  essential(bytes.first(kPNGSignatureSize));
  ByteCursor cursor(bytes, ByteOrder::kBig);
  cursor.skip(kPNGSignatureSize);
  while (true) {
    const auto start = cursor.position();
    const auto length = cursor.number(4);
    const auto type = cursor.number(4);
    cursor.skip(length);
    cursor.skip(kChunkFrameSize - 8);
    if (cursor.failed()) return false;
    if (isEssential(type)) essential(bytes.subspan(start, kChunkFrameSize + length));
    if (type == chunkType("IEND")) return true;
  }
}

}  // namespace kvl::images
