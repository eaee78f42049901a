// Any bytes in place of a picture: what is decoded is within the limits, is drawn the same each
// time, and is not decoded when its end is missing.
#include "fuzz/Target.h"
#include "platform/interface/ImageEntryPoint.h"
#include "platform/interface/images/GIFStructure.h"
#include "platform/interface/images/Limits.h"
#include "platform/interface/images/PNGStructure.h"

#include <algorithm>
#include <memory>
#include <vector>

extern "C" const KVLImageFunctions* kvlImageFunctions(std::uint32_t version);

namespace {

using kvl::Bytes;
using kvl::fuzz::require;
using kvl::images::Span;

constexpr std::size_t kChunkFrame = 12;  // length, type and sum
constexpr std::size_t kSignature = 8;

// As PNG sums up (ISO 3309).
std::uint32_t sumOf(Span bytes) {
  std::uint32_t sum = ~0U;
  for (const auto byte : bytes) {
    sum ^= byte;
    for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ ((sum & 1U) != 0 ? 0xEDB88320U : 0U);
  }
  return ~sum;
}

// Without the right sums, no change to a PNG would get beyond them.
void repairSums(Bytes& bytes) {
  for (std::size_t at = kSignature; at + kChunkFrame <= bytes.size();) {
    const auto length = kvl::images::numberAt(bytes, at, 4, kvl::images::ByteOrder::kBig);
    if (!length || *length > bytes.size() - at - kChunkFrame) return;
    const auto sum = sumOf(Span(bytes).subspan(at + 4, 4 + *length));
    for (std::size_t i = 0; i < 4; ++i)
      bytes[at + 8 + *length + i] = static_cast<std::uint8_t>(sum >> (24 - 8 * i));
    at += kChunkFrame + *length;
  }
}

bool isPNG(Span bytes) {
  return kvl::fuzz::textOf(bytes).starts_with("\x89PNG\r\n\x1a\n");
}

void checkPNG(Span bytes) {
  std::size_t end = 0;
  const bool whole = kvl::images::walkPNG(bytes, [&](Span part) {
    require(part.data() >= bytes.data() + end, "parts come in their order");
    end = static_cast<std::size_t>(part.data() - bytes.data()) + part.size();
    require(end <= bytes.size(), "parts are views of the file");
  });
  if (!whole) return;
  require(!kvl::images::walkPNG(bytes.first(end - 1), [](Span) {}),
          "a PNG without its end is none");
}

void checkGIF(Span bytes) {
  const auto end = kvl::images::firstPictureOfGIF(bytes);
  if (!end) return;
  require(*end < bytes.size(), "the end follows the picture");
  require(!kvl::images::firstPictureOfGIF(bytes.first(*end)), "a GIF without its end is none");
}

Bytes drawn(KVLImagePicture* picture, std::uint32_t width, std::uint32_t height) {
  Bytes pixels(std::size_t{4} * width * height);
  const bool works = kvlImageFunctions(kvl::interface::kImageModuleVersion)
                         ->draw(picture, width, height, pixels.data());
  return works ? pixels : Bytes();
}

struct PictureRelease {
  void operator()(KVLImagePicture* picture) const {
    kvlImageFunctions(kvl::interface::kImageModuleVersion)->release(picture);
  }
};

void checkDecoded(Span bytes) {
  KVLImageDescription description{};
  const std::unique_ptr<KVLImagePicture, PictureRelease> picture(
      kvlImageFunctions(kvl::interface::kImageModuleVersion)
          ->decode(bytes.data(), bytes.size(), &description));
  if (!picture) return;
  const auto [width, height, most] = description;
  require(width > 0 && width <= kvl::kMaximumImageSide, "the width is within its limits");
  require(height > 0 && height <= kvl::kMaximumImageSide, "the height is within its limits");
  require(most <= kvl::kMaximumBitmapPixels, "it is not drawn too large");
  require(!isPNG(bytes) || width * height <= static_cast<double>(kvl::kMaximumImagePixels),
          "a bitmap has no more pixels than it may");
  const auto once = drawn(picture.get(), 24, 16);
  require(drawn(picture.get(), 24, 16) == once, "it is drawn the same each time");
}

void checkPicture(kvl::fuzz::Input input) {
  Bytes bytes(input.begin(), input.end());
  if (isPNG(bytes)) repairSums(bytes);
  if (isPNG(bytes)) checkPNG(bytes);
  if (kvl::fuzz::textOf(bytes).starts_with("GIF8")) checkGIF(bytes);
  checkDecoded(bytes);
}

const kvl::fuzz::Target pictures("picture", checkPicture);

}  // namespace
