// Variants of the formats that an encoder of this machine does not make by itself.
#include "tests/interface/MadeImages.h"
#include "tests/interface/pictures/DrawnPicture.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvltest::drawn;
using kvltest::expectRedAndBlue;
using kvltest::pictureOf;
using kvltest::pixelAt;

std::string lowestFirst(std::uint64_t number, std::size_t length) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) bytes += static_cast<char>(number >> 8 * i);
  return bytes;
}

// Of squares, in that order.
std::string iconOf(const std::vector<int>& sides) {
  constexpr std::size_t kHead = 6;
  constexpr std::size_t kEntry = 16;
  std::string head = lowestFirst(0, 2) + lowestFirst(1, 2) +
                     lowestFirst(static_cast<std::uint32_t>(sides.size()), 2);
  std::string bodies;
  for (const int side : sides) {
    const auto file = kvltest::madePixbuf("ico", side, side);
    const auto body = file.text().substr(kHead + kEntry);
    const auto place = kHead + kEntry * sides.size() + bodies.size();
    head += file.text().substr(kHead, kEntry - 4);
    head += lowestFirst(static_cast<std::uint32_t>(place), 4);
    bodies += body;
  }
  return head + bodies;
}

TEST(OtherImagesTest, TheLargestPictureOfAnIconCounts) {
  for (const auto& sides : {std::vector{16, 48, 32}, {48, 16}, {16, 48}}) {
    const auto icon = iconOf(sides);
    const auto picture = pictureOf(icon);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->size(), (kvl::Size{48, 48}));
    expectRedAndBlue(drawn(picture, 32, 32), "icon");
  }
}

TEST(OtherImagesTest, ABitmapMayStandFromTopToBottom) {
  std::string bmp = "BM" + lowestFirst(54 + 8, 4) + lowestFirst(0, 4) + lowestFirst(54, 4) +
                    lowestFirst(40, 4) + lowestFirst(1, 4);
  const std::string rest = lowestFirst(1, 2) + lowestFirst(24, 2) + std::string(24, '\0');
  const std::string pixels("\0\0\xFF\0\xFF\0\0\0", 8);  // red, then blue
  const auto topDown = bmp + lowestFirst(~std::uint32_t{1}, 4) + rest + pixels;
  const auto bottomUp = bmp + lowestFirst(2, 4) + rest + pixels;
  const auto first = drawn(topDown, 1, 2);
  const auto second = drawn(bottomUp, 1, 2);
  ASSERT_FALSE(first.empty() || second.empty());
  EXPECT_EQ(pixelAt(first, 0, 0), (kvltest::Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(first, 0, 1), (kvltest::Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(second, 0, 1), (kvltest::Pixel{255, 0, 0, 255}));
}

std::string packed(std::string_view text) {
  GConverter* const packer = G_CONVERTER(g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP, -1));
  std::string bytes(text.size() + 1000, '\0');
  gsize read = 0;
  gsize written = 0;
  EXPECT_EQ(g_converter_convert(packer, text.data(), text.size(), bytes.data(), bytes.size(),
                                G_CONVERTER_INPUT_AT_END, &read, &written, nullptr),
            G_CONVERTER_FINISHED);
  g_object_unref(packer);
  bytes.resize(written);
  return bytes;
}

TEST(OtherImagesTest, AnSVGMayBePacked) {
  const auto svgz = packed(kvltest::madeSVG().text());
  const auto picture = pictureOf(svgz);
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->size(), (kvl::Size{32, 16}));
  expectRedAndBlue(drawn(picture, 32, 16), "packed");
}

TEST(OtherImagesTest, WhatElseIsPackedIsNoPicture) {
  EXPECT_EQ(pictureOf(packed("no markup")), nullptr);
  EXPECT_EQ(pictureOf(packed(kvltest::madePixbuf("png", 32, 16).text())), nullptr);
}

std::string wide(std::string_view text, bool highestFirst) {
  std::string units;
  for (const char character : text) {
    if (highestFirst) units += '\0';
    units += character;
    if (!highestFirst) units += '\0';
  }
  return units;
}

TEST(OtherImagesTest, AnSVGMayBeInUTF16) {
  const std::string svg(kvltest::madeSVG().text());
  const auto declared = "<?xml version='1.0' encoding='UTF-16'?>" + svg;
  for (const auto& text : {svg, declared}) {
    expectRedAndBlue(drawn("\xFF\xFE" + wide(text, false), 32, 16), "lowest byte first");
    expectRedAndBlue(drawn("\xFE\xFF" + wide(text, true), 32, 16), "highest byte first");
  }
  expectRedAndBlue(drawn(wide(declared, false), 32, 16), "lowest byte first, not marked");
  expectRedAndBlue(drawn(wide(declared, true), 32, 16), "highest byte first, not marked");
}

TEST(OtherImagesTest, AnSVGMayBeInLatin1) {
  const auto svg = "<?xml version='1.0' encoding='ISO-8859-1'?><!-- \xE4 -->" +
                   std::string(kvltest::madeSVG().text());
  expectRedAndBlue(drawn(svg, 32, 16), "Latin 1");
}

TEST(OtherImagesTest, OlderGIFsAreDecodedToo) {
  std::string gif(kvltest::madeGIF(1).text());
  gif.replace(3, 3, "87a");
  expectRedAndBlue(drawn(gif, 32, 16), "GIF87a");
}

}  // namespace
