#include "platform/interface/images/JPEGStructure.h"
#include "tests/interface/MadeBytes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kvltest::numberBytes;
using kvltest::repeated;
using kvltest::spanOf;

std::string marker(unsigned code) {
  return std::string("\xFF") + static_cast<char>(code);
}

std::string segment(unsigned code, const std::string& content) {
  return marker(code) + numberBytes(static_cast<std::uint32_t>(content.size() + 2), 2) + content;
}

std::string frame(kvltest::Sides sides = {32, 16}, unsigned code = 0xC0, unsigned components = 3) {
  return segment(code, "\x08" + numberBytes(sides.height, 2) + numberBytes(sides.width, 2) +
                           static_cast<char>(components));
}

std::string scan(const std::string& codedData = "coded") {
  return segment(0xDA, "head") + codedData;
}

std::string jpegOf(const std::string& segments) {
  return marker(0xD8) + segments + marker(0xD9);
}

bool isGoodJPEG(const std::string& file) {
  return kvl::images::isWholeJPEG(spanOf(file));
}

TEST(JPEGStructureTest, AFileThatEndsEarlyIsRefused) {
  const auto file = jpegOf(segment(0xE0, "JFIF") + segment(0xDB, "") + frame() + scan() + scan());
  EXPECT_TRUE(isGoodJPEG(file));
  EXPECT_TRUE(isGoodJPEG(file + "more"));
  for (std::size_t size = 0; size < file.size(); ++size) {
    EXPECT_FALSE(isGoodJPEG(file.substr(0, size))) << size;
  }
}

TEST(JPEGStructureTest, AFileHasOneFrameAndAScanAfterIt) {
  EXPECT_TRUE(isGoodJPEG(jpegOf(frame() + scan())));
  EXPECT_FALSE(isGoodJPEG(jpegOf("")));
  EXPECT_FALSE(isGoodJPEG(jpegOf(frame())));
  EXPECT_FALSE(isGoodJPEG(jpegOf(scan())));
  EXPECT_FALSE(isGoodJPEG(jpegOf(scan() + frame())));
  EXPECT_FALSE(isGoodJPEG(jpegOf(frame() + frame() + scan())));
  EXPECT_FALSE(isGoodJPEG(jpegOf(frame() + scan() + frame())));
}

TEST(JPEGStructureTest, FramesOfAllKindsAreLookedAt) {
  for (unsigned code = 0xC0; code <= 0xCF; ++code) {
    const bool isFrame = code != 0xC4 && code != 0xC8 && code != 0xCC;
    EXPECT_EQ(isGoodJPEG(jpegOf(frame({32, 16}, code) + scan())), isFrame) << code;
    EXPECT_EQ(isGoodJPEG(jpegOf(frame() + frame({0, 0}, code) + scan())), !isFrame) << code;
  }
  for (const unsigned code : {0xBFU, 0xDBU, 0xFEU}) {
    EXPECT_FALSE(isGoodJPEG(jpegOf(frame({32, 16}, code) + scan()))) << code;
  }
}

TEST(JPEGStructureTest, SizesUpToTheLimitsAreDecoded) {
  for (const auto sides : kvltest::kDecodableSides) {
    EXPECT_TRUE(isGoodJPEG(jpegOf(frame(sides) + scan()))) << sides.width << " x " << sides.height;
  }
  for (const auto sides : kvltest::kUndecodableSides) {
    EXPECT_FALSE(isGoodJPEG(jpegOf(frame(sides) + scan()))) << sides.width << " x " << sides.height;
  }
}

TEST(JPEGStructureTest, APictureHasUpToFourComponents) {
  EXPECT_TRUE(isGoodJPEG(jpegOf(frame({32, 16}, 0xC0, 1) + scan())));
  EXPECT_TRUE(isGoodJPEG(jpegOf(frame({32, 16}, 0xC0, 4) + scan())));
  EXPECT_FALSE(isGoodJPEG(jpegOf(frame({32, 16}, 0xC0, 5) + scan())));
}

TEST(JPEGStructureTest, APictureHasUpToAHundredScans) {
  EXPECT_TRUE(isGoodJPEG(jpegOf(frame() + repeated(scan(), 100))));
  EXPECT_FALSE(isGoodJPEG(jpegOf(frame() + repeated(scan(), 101))));
}

TEST(JPEGStructureTest, CodedDataGoesOnAfterStuffedBytesAndRestarts) {
  EXPECT_TRUE(isGoodJPEG(jpegOf(frame() + scan(""))));
  EXPECT_TRUE(isGoodJPEG(jpegOf(frame() + scan(std::string("\xFF\0", 2)))));
  EXPECT_TRUE(isGoodJPEG(jpegOf(frame() + scan(std::string("a\xFF\0\xFF\0b\0", 7)))));
  for (unsigned code = 0xD0; code <= 0xD7; ++code) {
    EXPECT_TRUE(isGoodJPEG(jpegOf(frame() + scan("a" + marker(code) + "b")))) << code;
  }
  // Others begin a segment, which has no such length.
  for (const unsigned code : {0xCFU, 0xD8U, 0xFEU, 0x02U}) {
    EXPECT_FALSE(isGoodJPEG(jpegOf(frame() + scan("a" + marker(code) + "\x7F\x7F")))) << code;
  }
}

TEST(JPEGStructureTest, SomeMarkersHaveNoLength) {
  for (const unsigned code : {0x01U, 0xD0U, 0xD3U, 0xD7U}) {
    EXPECT_TRUE(isGoodJPEG(jpegOf(marker(code) + frame() + scan()))) << code;
  }
  for (const unsigned code : {0x02U, 0xCFU, 0xD8U}) {
    EXPECT_FALSE(isGoodJPEG(jpegOf(marker(code) + frame() + scan()))) << code;
  }
}

TEST(JPEGStructureTest, FillBytesMayStandBeforeAMarkerAndNothingElse) {
  EXPECT_TRUE(isGoodJPEG(jpegOf("\xFF\xFF\xFF" + frame() + "\xFF" + scan())));
  EXPECT_FALSE(isGoodJPEG(jpegOf("x" + frame() + scan())));
  EXPECT_FALSE(isGoodJPEG(jpegOf(frame() + "x" + scan())));
  EXPECT_FALSE(isGoodJPEG(jpegOf(std::string(1, '\0') + frame() + scan())));
}

TEST(JPEGStructureTest, ASegmentIsAtLeastAsLongAsItsLength) {
  const auto withLength = [](std::uint32_t length) {
    return jpegOf(frame() + marker(0xE0) + numberBytes(length, 2) + scan());
  };
  EXPECT_TRUE(isGoodJPEG(withLength(2)));
  EXPECT_FALSE(isGoodJPEG(withLength(1)));
  EXPECT_FALSE(isGoodJPEG(withLength(0)));
  EXPECT_FALSE(isGoodJPEG(withLength(0xFFFF)));
}

}  // namespace
