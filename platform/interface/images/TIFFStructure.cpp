#include "platform/interface/images/TIFFStructure.h"

#include "platform/interface/images/Limits.h"

#include <algorithm>
#include <array>
#include <map>

namespace kvl::images {
namespace {

enum Tag : std::uint32_t {
  kImageWidth = 256,
  kImageLength = 257,
  kBitsPerSample = 258,
  kCompression = 259,
  kStripOffsets = 273,
  kSamplesPerPixel = 277,
  kStripByteCounts = 279,
  kTileWidth = 322,
  kTileLength = 323,
  kTileOffsets = 324,
  kTileByteCounts = 325,
};

constexpr std::array<std::uint32_t, 11> kReadTags{
    kImageWidth, kImageLength,     kBitsPerSample, kCompression, kStripOffsets,  kSamplesPerPixel,
    kTileWidth,  kStripByteCounts, kTileLength,    kTileOffsets, kTileByteCounts};

// Of files with three dimensions; they multiply the sizes.
constexpr std::array<std::uint32_t, 2> kRefusedTags{32997, 32998};
// None, three of CCITT, LZW, Deflate under both its numbers, PackBits. Others may decode to more
// than the directory states.
constexpr std::array<std::uint32_t, 8> kCompressions{1, 2, 3, 4, 5, 8, 32773, 32946};
constexpr std::uint32_t kMaximumSamples = 5;
constexpr std::uint32_t kMaximumBits = 16;
constexpr std::size_t kEntrySize = 12;

struct Field {
  std::size_t position = 0;  // of its values
  std::size_t width = 0;     // of each, in bytes
  std::size_t count = 0;
};

// The fields of the first directory that hold whole numbers.
class Directory {
 public:
  explicit Directory(Span bytes)
      : bytes_(bytes), order_(bytes[0] == 'I' ? ByteOrder::kLittle : ByteOrder::kBig) {}

  // False when a field lies outside the file, is no whole number where one is needed, or comes
  // twice: readers differ in what they make of those.
  bool read() {
    const auto start = numberAt(bytes_, 4, 4, order_);
    const auto count = start ? numberAt(bytes_, *start, 2, order_) : std::nullopt;
    if (!count) return false;
    std::uint32_t last = 0;
    for (std::size_t i = 0; i < *count; ++i) {
      const auto tag = readEntry(*start + 2 + i * kEntrySize);
      if (!tag || *tag <= last || std::ranges::count(kRefusedTags, *tag) > 0) return false;
      last = *tag;
    }
    return true;
  }

  [[nodiscard]] std::size_t count(Tag tag) const {
    const auto field = fields_.find(tag);
    return field != fields_.end() ? field->second.count : 0;
  }

  // @pre index < count(tag)
  [[nodiscard]] std::uint32_t value(Tag tag, std::size_t index) const {
    const auto& field = fields_.at(tag);
    return numberAt(bytes_, field.position + index * field.width, field.width, order_).value_or(0);
  }

  [[nodiscard]] std::uint32_t valueOr(Tag tag, std::uint32_t fallback) const {
    return count(tag) > 0 ? value(tag, 0) : fallback;
  }

 private:
  std::optional<std::uint32_t> readEntry(std::size_t position) {
    const auto tag = numberAt(bytes_, position, 2, order_);
    const auto type = numberAt(bytes_, position + 2, 2, order_);
    const auto count = numberAt(bytes_, position + 4, 4, order_);
    const auto value = numberAt(bytes_, position + 8, 4, order_);
    if (!tag || !type || !count || !value) return {};
    const std::size_t width = *type == 3 ? 2 : *type == 4 ? 4 : 0;
    if (width == 0) return std::ranges::count(kReadTags, *tag) == 0 ? tag : std::nullopt;
    const auto size = std::uint64_t{width} * *count;
    const std::size_t start = size <= 4 ? position + 8 : *value;
    if (start > bytes_.size() || size > bytes_.size() - start) return {};
    fields_[*tag] = {start, width, *count};
    return tag;
  }

  Span bytes_;
  ByteOrder order_;
  std::map<std::uint32_t, Field> fields_;
};

std::uint32_t bitsPerPixel(const Directory& directory) {
  const auto samples = directory.valueOr(kSamplesPerPixel, 1);
  if (samples > kMaximumSamples) return 0;
  std::uint32_t bits = 1;
  for (std::size_t i = 0; i < std::min<std::size_t>(directory.count(kBitsPerSample), samples);
       ++i) {
    bits = std::max(bits, directory.value(kBitsPerSample, i));
  }
  return bits <= kMaximumBits ? bits * samples : 0;
}

bool isModest(const Directory& directory) {
  const std::uint64_t width = directory.valueOr(kImageWidth, 0);
  const std::uint64_t height = directory.valueOr(kImageLength, 0);
  const auto bits = bitsPerPixel(directory);
  const std::uint64_t tileWidth = directory.valueOr(kTileWidth, 1);
  const std::uint64_t tileHeight = directory.valueOr(kTileLength, 1);
  const auto compression = directory.valueOr(kCompression, 1);
  return isDecodable(width, height) && isDecodable(tileWidth, tileHeight) && bits > 0 &&
         std::max(width * height, tileWidth * tileHeight) * bits / 8 <= kWorkingBytes &&
         std::ranges::count(kCompressions, compression) > 0;
}

bool allInside(Span bytes, const Directory& directory, Tag offsets, Tag sizes) {
  for (std::size_t i = 0; i < directory.count(offsets); ++i) {
    const std::uint64_t offset = directory.value(offsets, i);
    const std::uint64_t size = i < directory.count(sizes) ? directory.value(sizes, i) : 1;
    if (offset + size > bytes.size()) return false;
  }
  return true;
}

}  // namespace

bool isWholeTIFF(Span bytes) {
  Directory directory(bytes);
  if (!directory.read() || !isModest(directory)) return false;
  if (directory.count(kStripOffsets) + directory.count(kTileOffsets) == 0) return false;
  return allInside(bytes, directory, kStripOffsets, kStripByteCounts) &&
         allInside(bytes, directory, kTileOffsets, kTileByteCounts);
}

}  // namespace kvl::images
