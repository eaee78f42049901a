#include "platform/interface/images/GIFStructure.h"
#include "tests/interface/MadeBytes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kvl::images::ByteOrder;
using kvl::images::firstPictureOfGIF;
using kvltest::numberBytes;
using kvltest::spanOf;

std::string bytesOf(kvltest::Sides sides) {
  return numberBytes(sides.width, 2, ByteOrder::kLittle) +
         numberBytes(sides.height, 2, ByteOrder::kLittle);
}

// As many colours as the flags state; none of their bytes begins a block.
std::string colorTable(unsigned flags) {
  return std::string((flags & 0x80U) != 0 ? std::size_t{3} << ((flags & 7U) + 1) : 0, '\xEE');
}

std::string screen(kvltest::Sides sides = {32, 16}, unsigned flags = 0) {
  return "GIF89a" + bytesOf(sides) + static_cast<char>(flags) + "\x2C\x3B" + colorTable(flags);
}

std::string picture(kvltest::Sides sides = {32, 16}, unsigned flags = 0) {
  return "\x2C\x3B\x3B\x3B\x3B" + bytesOf(sides) + static_cast<char>(flags) + colorTable(flags) +
         "\x3B\x02;;\x01;" + '\xFF' + std::string(255, ';') + '\0';
}

std::string extension() {
  return std::string("\x21\xF9\x04;;;;\x01;\0", 10);
}

std::optional<std::size_t> endOf(const std::string& file) {
  return firstPictureOfGIF(spanOf(file));
}

TEST(GIFStructureTest, TheFirstPictureEndsBeforeTheNextBlock) {
  const auto first = screen() + extension() + picture();
  EXPECT_EQ(endOf(first + ";"), first.size());
  EXPECT_EQ(endOf(first + picture({8, 8}) + extension() + picture() + ";"), first.size());
  EXPECT_EQ(endOf(first + extension() + ";" + picture()), first.size());
}

TEST(GIFStructureTest, ColorTablesOfAllSizesAreSkipped) {
  for (unsigned size = 0; size < 8; ++size) {
    for (const unsigned flags : {0x80U | size, 0xF8U | size, size, 0x78U | size}) {
      const auto withScreens = screen({32, 16}, flags) + picture();
      EXPECT_EQ(endOf(withScreens + ";"), withScreens.size()) << flags;
      const auto withPictures = screen() + picture({32, 16}, flags);
      EXPECT_EQ(endOf(withPictures + ";"), withPictures.size()) << flags;
    }
  }
}

TEST(GIFStructureTest, AFileThatEndsEarlyIsRefused) {
  const auto file =
      screen({32, 16}, 0x80) + extension() + picture({32, 16}, 0x81) + picture() + ";";
  EXPECT_NE(endOf(file), std::nullopt);
  for (std::size_t size = 0; size < file.size(); ++size) {
    EXPECT_EQ(endOf(file.substr(0, size)), std::nullopt) << size;
  }
}

TEST(GIFStructureTest, AFileWithoutAPictureIsRefused) {
  EXPECT_EQ(endOf(screen() + ";"), std::nullopt);
  EXPECT_EQ(endOf(screen() + extension() + ";"), std::nullopt);
}

TEST(GIFStructureTest, BlocksThatNobodyKnowsAreRefused) {
  for (const char block : {'\0', '\x20', '\x22', '\x2B', '\x2D', '\x3A', '\x3C', '\xFF'}) {
    EXPECT_EQ(endOf(screen() + picture() + block + ";"), std::nullopt) << int{block};
    EXPECT_EQ(endOf(screen() + block + picture() + ";"), std::nullopt) << int{block};
  }
}

TEST(GIFStructureTest, SizesUpToTheLimitsAreDecoded) {
  for (const auto sides : kvltest::kDecodableSides) {
    EXPECT_NE(endOf(screen(sides) + picture(sides) + ";"), std::nullopt)
        << sides.width << " x " << sides.height;
  }
  for (const auto sides : kvltest::kUndecodableSides) {
    EXPECT_EQ(endOf(screen(sides) + picture() + ";"), std::nullopt)
        << sides.width << " x " << sides.height << " in all";
    EXPECT_EQ(endOf(screen() + picture(sides) + ";"), std::nullopt)
        << sides.width << " x " << sides.height << " first";
    EXPECT_EQ(endOf(screen() + picture() + picture(sides) + ";"), std::nullopt)
        << sides.width << " x " << sides.height << " second";
  }
}

}  // namespace
