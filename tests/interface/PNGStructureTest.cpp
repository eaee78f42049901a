#include "platform/interface/images/PNGStructure.h"
#include "tests/interface/MadeBytes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvltest::numberBytes;
using kvltest::spanOf;

constexpr std::string_view kPNGSignature = "\x89PNG\r\n\x1a\n";

std::string chunk(std::string_view name, std::string_view content) {
  return numberBytes(static_cast<std::uint32_t>(content.size()), 4) + std::string(name) +
         std::string(content) + "sum!";
}

std::string headerChunk(std::uint32_t width, std::uint32_t height) {
  return chunk("IHDR",
               numberBytes(width, 4) + numberBytes(height, 4) + "\x08\x02" + std::string(3, '\0'));
}

std::string pngOf(const std::string& chunks) {
  return std::string(kPNGSignature) + chunks;
}

const std::string& endChunk() {
  static const std::string chunk = ::chunk("IEND", "");
  return chunk;
}

// The parts that the pixels depend on; none when the file is refused.
std::vector<std::string> essentialParts(const std::string& file) {
  std::vector<std::string> parts;
  const bool good = kvl::images::walkPNG(
      spanOf(file), [&](kvl::images::Span part) { parts.emplace_back(part.begin(), part.end()); });
  if (!good) parts.clear();
  return parts;
}

TEST(PNGStructureTest, OnlyWhatThePixelsDependOnReachesTheDecoder) {
  const auto header = headerChunk(32, 16);
  const auto palette = chunk("PLTE", "abc");
  const auto transparency = chunk("tRNS", "a");
  const auto pixels = chunk("IDAT", "pixels");
  const auto file =
      pngOf(header + chunk("iCCP", "profile") + palette + chunk("gAMA", "1234") + transparency +
            chunk("tEXt", "") + pixels + chunk("zTXt", "bomb") + endChunk());
  EXPECT_EQ(essentialParts(file),
            (std::vector<std::string>{std::string(kPNGSignature), header, palette, transparency,
                                      pixels, endChunk()}));
}

TEST(PNGStructureTest, NothingAfterTheEndIsLookedAt) {
  const auto file = pngOf(headerChunk(32, 16) + endChunk());
  EXPECT_EQ(essentialParts(file + chunk("IDAT", "x")), essentialParts(file));
  EXPECT_EQ(essentialParts(file + "x").size(), 3U);
}

TEST(PNGStructureTest, AFileThatEndsEarlyIsRefused) {
  const auto file = pngOf(headerChunk(32, 16) + chunk("IDAT", "pixels") + endChunk());
  EXPECT_EQ(essentialParts(file).size(), 4U);
  for (std::size_t size = 0; size < file.size(); ++size) {
    EXPECT_TRUE(essentialParts(file.substr(0, size)).empty()) << size;
  }
}

TEST(PNGStructureTest, AChunkThatGoesBeyondTheFileIsRefused) {
  for (const std::uint32_t length : {100U, 0x7FFFFFFFU, 0xFFFFFFF4U, 0xFFFFFFFFU}) {
    EXPECT_TRUE(essentialParts(pngOf(headerChunk(32, 16) + numberBytes(length, 4) + "IDAT") +
                               std::string(20, 'x') + endChunk())
                    .empty())
        << length;
  }
}

TEST(PNGStructureTest, SizesUpToTheLimitsAreDecoded) {
  for (const auto [width, height] : kvltest::kDecodableSides) {
    EXPECT_FALSE(essentialParts(pngOf(headerChunk(width, height) + endChunk())).empty())
        << width << " x " << height;
  }
  for (const auto [width, height] : kvltest::kUndecodableSides) {
    EXPECT_TRUE(essentialParts(pngOf(headerChunk(width, height) + endChunk())).empty())
        << width << " x " << height;
  }
}

TEST(PNGStructureTest, OfARefusedHeaderTheDecoderSeesNothing) {
  const auto file = pngOf(headerChunk(16385, 1) + endChunk());
  int parts = 0;
  EXPECT_FALSE(kvl::images::walkPNG(spanOf(file), [&](kvl::images::Span) { ++parts; }));
  EXPECT_EQ(parts, 0);
}

TEST(PNGStructureTest, TheHeaderComesFirstAndHasItsLength) {
  const std::string content = numberBytes(32, 4) + numberBytes(16, 4) + "\x08\x02";
  EXPECT_FALSE(
      essentialParts(pngOf(chunk("IHDR", content + std::string(3, '\0')) + endChunk())).empty());
  for (const std::size_t padding : {2, 4}) {
    EXPECT_TRUE(
        essentialParts(pngOf(chunk("IHDR", content + std::string(padding, '\0')) + endChunk()))
            .empty());
  }
  for (const char* name : {"IDAT", "tEXt", "JHDR", "IHDS", "ihdr"}) {
    EXPECT_TRUE(
        essentialParts(pngOf(chunk(name, content + std::string(3, '\0')) + endChunk())).empty())
        << name;
  }
}

}  // namespace
