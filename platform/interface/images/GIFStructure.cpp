#include "platform/interface/images/GIFStructure.h"

#include "platform/interface/images/Limits.h"

namespace kvl::images {
namespace {

constexpr std::size_t kGIFSignatureSize = 6;
constexpr std::uint32_t kExtension = 0x21;
constexpr std::uint32_t kImage = 0x2C;
constexpr std::uint32_t kTrailer = 0x3B;

void skipColorTable(ByteCursor& cursor, std::uint32_t flags) {
  if ((flags & 0x80) != 0) cursor.skip(std::size_t{3} << ((flags & 7) + 1));
}

void skipSubBlocks(ByteCursor& cursor) {
  while (const auto length = cursor.number(1)) cursor.skip(length);
}

bool takeSize(ByteCursor& cursor) {
  const auto width = cursor.number(2);
  const auto height = cursor.number(2);
  return isDecodable(width, height);
}

bool takeScreen(ByteCursor& cursor) {
  cursor.skip(kGIFSignatureSize);
  const bool decodable = takeSize(cursor);
  const auto flags = cursor.number(1);
  cursor.skip(2);
  skipColorTable(cursor, flags);
  return decodable;
}

bool takeImage(ByteCursor& cursor) {
  cursor.skip(4);
  const bool decodable = takeSize(cursor);
  skipColorTable(cursor, cursor.number(1));
  cursor.skip(1);
  skipSubBlocks(cursor);
  return decodable;
}

}  // namespace

std::optional<std::size_t> firstPictureOfGIF(Span bytes) {
  ByteCursor cursor(bytes, ByteOrder::kLittle);
  if (!takeScreen(cursor)) return {};
  std::optional<std::size_t> end;
  while (!cursor.failed()) {
    const auto block = cursor.number(1);
    if (block == kTrailer) return end;
    if (block == kImage) {
      if (!takeImage(cursor)) return {};
      if (!end) end = cursor.position();
    } else if (block == kExtension) {
      cursor.skip(1);
      skipSubBlocks(cursor);
    } else {
      return {};
    }
  }
  return {};
}

}  // namespace kvl::images
