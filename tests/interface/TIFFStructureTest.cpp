#include "platform/interface/images/TIFFStructure.h"
#include "tests/interface/MadeBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace {

using kvl::images::ByteOrder;
using kvltest::spanOf;

enum Type : std::uint32_t { kByte = 1, kText = 2, kShort = 3, kLong = 4, kRational = 5 };
enum Tag : std::uint32_t {
  kWidth = 256,
  kHeight = 257,
  kBits = 258,
  kCompression = 259,
  kStripOffsets = 273,
  kSamples = 277,
  kStripSizes = 279,
  kProgram = 305,
  kTileWidth = 322,
  kTileHeight = 323,
  kTileOffsets = 324,
  kTileSizes = 325,
};

struct Entry {
  std::uint32_t tag;
  std::vector<std::uint32_t> values;
  std::uint32_t type = kLong;
};

// Values that do not fit their entry follow the directory; the file ends with them.
std::string tiffOf(const std::vector<Entry>& entries, ByteOrder order = ByteOrder::kLittle) {
  const auto bytes = [order](std::uint32_t number, std::size_t length) {
    return kvltest::numberBytes(number, length, order);
  };
  constexpr std::uint32_t start = 8;
  std::string directory = bytes(static_cast<std::uint32_t>(entries.size()), 2);
  std::string outside;
  const auto outsideStart = start + 2 + entries.size() * 12;
  for (const auto& [tag, values, type] : entries) {
    std::string content;
    for (const auto value : values) content += bytes(value, type == kShort ? 2 : 4);
    const auto place = static_cast<std::uint32_t>(outsideStart + outside.size());
    directory +=
        bytes(tag, 2) + bytes(type, 2) + bytes(static_cast<std::uint32_t>(values.size()), 4);
    if (content.size() <= 4) {
      content.resize(4);
      directory += content;
    } else {
      directory += bytes(place, 4);
      outside += content;
    }
  }
  return (order == ByteOrder::kLittle ? "II*" + std::string(1, '\0')
                                      : "MM" + std::string(1, '\0') + "*") +
         bytes(start, 4) + directory + outside;
}

bool isGoodTIFF(const std::string& file) {
  return kvl::images::isWholeTIFF(spanOf(file));
}

// A picture with these fields instead of its own, or besides them.
std::string withFields(const std::vector<Entry>& fields,
                       std::vector<Entry> own = {{kWidth, {32}},
                                                 {kHeight, {16}},
                                                 {kStripOffsets, {8}},
                                                 {kStripSizes, {2}}}) {
  for (const auto& field : fields) {
    std::erase_if(own, [&field](const Entry& entry) { return entry.tag == field.tag; });
    own.push_back(field);
  }
  std::ranges::sort(own, {}, &Entry::tag);
  return tiffOf(own);
}

bool isGoodWith(const std::vector<Entry>& fields) {
  return isGoodTIFF(withFields(fields));
}

TEST(TIFFStructureTest, BothOrdersOfBytesAreRead) {
  for (const auto order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const std::vector<Entry> entries{{kWidth, {32}, kShort},     {kHeight, {16}},
                                     {kBits, {8, 8, 8}, kShort}, {kStripOffsets, {8, 9}, kShort},
                                     {kSamples, {3}, kShort},    {kStripSizes, {2, 2}}};
    const auto file = tiffOf(entries, order);
    EXPECT_TRUE(isGoodTIFF(file));
    for (std::size_t size = 2; size < file.size(); ++size) {
      EXPECT_FALSE(isGoodTIFF(file.substr(0, size))) << size;
    }
  }
}

TEST(TIFFStructureTest, SizesUpToTheLimitsAreDecoded) {
  for (const auto [width, height] : kvltest::kDecodableSides) {
    EXPECT_TRUE(isGoodWith({{kWidth, {width}}, {kHeight, {height}}})) << width << " x " << height;
    EXPECT_TRUE(isGoodWith({{kTileWidth, {width}}, {kTileHeight, {height}}}))
        << width << " x " << height;
  }
  for (const auto [width, height] : kvltest::kUndecodableSides) {
    EXPECT_FALSE(isGoodWith({{kWidth, {width}}, {kHeight, {height}}})) << width << " x " << height;
    EXPECT_FALSE(isGoodWith({{kTileWidth, {width}}, {kTileHeight, {height}}}))
        << width << " x " << height;
  }
  EXPECT_FALSE(isGoodTIFF(tiffOf({{kWidth, {32}}, {kStripOffsets, {8}}})));
  EXPECT_FALSE(isGoodTIFF(tiffOf({{kHeight, {16}}, {kStripOffsets, {8}}})));
  EXPECT_FALSE(isGoodWith({{kWidth, {}}}));
}

TEST(TIFFStructureTest, ItsPixelsFitTheMemoryOfADecoder) {
  const auto fits = [](std::uint32_t samples, std::vector<std::uint32_t> bits) {
    return isGoodWith({{kWidth, {2048}},
                       {kHeight, {2048}},
                       {kBits, std::move(bits), kShort},
                       {kSamples, {samples}, kShort}});
  };
  EXPECT_TRUE(fits(4, {8, 8, 8, 8}));
  EXPECT_TRUE(fits(2, {16, 16}));
  EXPECT_FALSE(fits(4, {8, 8, 8, 9}));
  EXPECT_FALSE(fits(4, {9, 8, 8, 8}));
  EXPECT_TRUE(fits(4, {8, 8, 8, 8, 9}));
  EXPECT_FALSE(fits(5, {8}));
  EXPECT_TRUE(fits(5, {}));
}

TEST(TIFFStructureTest, TilesLargerThanThePictureFitTheMemoryToo) {
  const auto fits = [](std::uint32_t bits) {
    return isGoodWith({{kBits, {bits}, kShort},
                       {kSamples, {4}, kShort},
                       {kTileWidth, {2048}},
                       {kTileHeight, {2048}}});
  };
  EXPECT_TRUE(fits(8));
  EXPECT_FALSE(fits(9));
}

TEST(TIFFStructureTest, APixelHasUpToFiveSamplesOfSixteenBits) {
  const auto holds = [](std::uint32_t samples, std::uint32_t bits) {
    return isGoodWith({{kBits, {bits}, kShort}, {kSamples, {samples}, kShort}});
  };
  EXPECT_TRUE(holds(1, 1));
  EXPECT_TRUE(holds(5, 16));
  EXPECT_FALSE(holds(6, 16));
  EXPECT_FALSE(holds(5, 17));
  EXPECT_FALSE(holds(0, 8));
  // Without a field for its bits, a sample is one bit.
  EXPECT_FALSE(isGoodWith({{kSamples, {0}, kShort}}));
  EXPECT_TRUE(isGoodWith({{kSamples, {5}, kShort}}));
  EXPECT_FALSE(isGoodWith({{kSamples, {6}, kShort}}));
  // Without a number of samples, there is one.
  EXPECT_TRUE(isGoodWith({{kBits, {16, 17}, kShort}}));
  EXPECT_FALSE(isGoodWith({{kBits, {17, 16}, kShort}}));
}

TEST(TIFFStructureTest, OnlySomeCompressionsAreDecoded) {
  for (const std::uint32_t compression : {1, 2, 3, 4, 5, 8, 32773, 32946}) {
    EXPECT_TRUE(isGoodWith({{kCompression, {compression}, kShort}})) << compression;
  }
  for (const std::uint32_t compression : {0, 6, 7, 9, 10, 32771, 32774, 32947, 34661, 34712}) {
    EXPECT_FALSE(isGoodWith({{kCompression, {compression}, kShort}})) << compression;
  }
}

TEST(TIFFStructureTest, StripsAndTilesLieWithinTheFile) {
  const auto size = static_cast<std::uint32_t>(withFields({}).size());
  EXPECT_TRUE(isGoodWith({{kStripOffsets, {size - 2}}}));
  EXPECT_FALSE(isGoodWith({{kStripOffsets, {size - 1}}}));
  EXPECT_FALSE(isGoodWith({{kStripOffsets, {0xFFFFFFFF}}, {kStripSizes, {0xFFFFFFFF}}}));
  EXPECT_TRUE(isGoodWith({{kStripSizes, {size - 8}}}));
  EXPECT_FALSE(isGoodWith({{kStripSizes, {size - 7}}}));
  const std::vector<Entry> tiled{
      {kWidth, {32}}, {kHeight, {16}}, {kTileOffsets, {8}}, {kTileSizes, {2}}};
  EXPECT_TRUE(isGoodTIFF(withFields({}, tiled)));
  EXPECT_TRUE(isGoodTIFF(withFields({{kTileOffsets, {size - 2}}}, tiled)));
  EXPECT_FALSE(isGoodTIFF(withFields({{kTileOffsets, {size - 1}}}, tiled)));
}

TEST(TIFFStructureTest, EachOfSeveralStripsLiesWithinTheFile) {
  const auto file = [](std::uint32_t first, std::uint32_t second, std::uint32_t third) {
    return withFields({{kStripOffsets, {first, second, third}}, {kStripSizes, {1, 9, 1}}});
  };
  const auto size = static_cast<std::uint32_t>(file(8, 8, 8).size());
  EXPECT_TRUE(isGoodTIFF(file(size - 1, size - 9, size - 1)));
  EXPECT_FALSE(isGoodTIFF(file(size, 8, 8)));
  EXPECT_FALSE(isGoodTIFF(file(8, size - 8, 8)));
  EXPECT_FALSE(isGoodTIFF(file(8, 8, size)));
}

TEST(TIFFStructureTest, AStripWithoutASizeHasAtLeastAByte) {
  const auto file = [](std::uint32_t offset) {
    return tiffOf({{kWidth, {32}}, {kHeight, {16}}, {kStripOffsets, {offset}}});
  };
  const auto size = static_cast<std::uint32_t>(file(8).size());
  EXPECT_TRUE(isGoodTIFF(file(size - 1)));
  EXPECT_FALSE(isGoodTIFF(file(size)));
}

TEST(TIFFStructureTest, APictureHasStripsOrTiles) {
  const std::vector<Entry> sides{{kWidth, {32}}, {kHeight, {16}}};
  EXPECT_FALSE(isGoodTIFF(withFields({}, sides)));
  EXPECT_FALSE(isGoodTIFF(withFields({{kStripOffsets, {}}}, sides)));
  EXPECT_TRUE(isGoodTIFF(withFields({{kStripOffsets, {8}}}, sides)));
  EXPECT_TRUE(isGoodTIFF(withFields({{kTileOffsets, {8}}}, sides)));
  EXPECT_TRUE(isGoodTIFF(withFields({{kStripOffsets, {8}}, {kTileOffsets, {8}}}, sides)));
}

TEST(TIFFStructureTest, FieldsComeInOrderAndOnce) {
  EXPECT_TRUE(isGoodTIFF(tiffOf({{kWidth, {32}}, {kHeight, {16}}, {kStripOffsets, {8}}})));
  EXPECT_FALSE(isGoodTIFF(tiffOf({{kHeight, {16}}, {kWidth, {32}}, {kStripOffsets, {8}}})));
  EXPECT_FALSE(
      isGoodTIFF(tiffOf({{kWidth, {32}}, {kWidth, {32}}, {kHeight, {16}}, {kStripOffsets, {8}}})));
  EXPECT_FALSE(
      isGoodTIFF(tiffOf({{kWidth, {32}}, {kHeight, {16}}, {kStripOffsets, {8}}, {1, {0}, kText}})));
}

TEST(TIFFStructureTest, PicturesOfThreeDimensionsAreRefused) {
  for (const std::uint32_t tag : {32997, 32998}) EXPECT_FALSE(isGoodWith({{tag, {1}}})) << tag;
  for (const std::uint32_t tag : {32996, 32999}) EXPECT_TRUE(isGoodWith({{tag, {1}}})) << tag;
}

TEST(TIFFStructureTest, FieldsThatAreReadHoldWholeNumbers) {
  for (const std::uint32_t tag : {kWidth, kHeight, kBits, kCompression, kStripOffsets, kSamples,
                                  kStripSizes, kTileWidth, kTileHeight, kTileOffsets, kTileSizes}) {
    EXPECT_TRUE(isGoodWith({{tag, {2}, kShort}})) << tag;
    EXPECT_TRUE(isGoodWith({{tag, {2}, kLong}})) << tag;
    for (const auto type : {kByte, kText, kRational}) {
      EXPECT_FALSE(isGoodWith({{tag, {2}, type}})) << tag << " of type " << type;
    }
  }
  for (const auto type : {kByte, kText, kRational}) {
    EXPECT_TRUE(isGoodWith({{kProgram, {8}, type}})) << type;
  }
}

TEST(TIFFStructureTest, WhatAFieldRefersToLiesWithinTheFile) {
  // The last entry's count and place, as they are for two numbers at the file's end.
  const auto file = tiffOf({{kWidth, {32}}, {kHeight, {16}}, {kStripOffsets, {8, 8}}});
  const auto entry = file.size() - 8 - 12;
  const auto changed = [&](std::uint32_t count, std::size_t place) {
    auto bytes = file;
    bytes.replace(entry + 4, 4, kvltest::numberBytes(count, 4, ByteOrder::kLittle));
    bytes.replace(entry + 8, 4,
                  kvltest::numberBytes(static_cast<std::uint32_t>(place), 4, ByteOrder::kLittle));
    return bytes;
  };
  EXPECT_TRUE(isGoodTIFF(changed(2, file.size() - 8)));
  EXPECT_FALSE(isGoodTIFF(changed(2, file.size() - 7)));
  EXPECT_FALSE(isGoodTIFF(changed(3, file.size() - 8)));
  EXPECT_FALSE(isGoodTIFF(changed(2, file.size() + 1)));
  EXPECT_FALSE(isGoodTIFF(changed(2, 0xFFFFFFFF)));
  EXPECT_FALSE(isGoodTIFF(changed(0x40000001, file.size() - 8)));
  EXPECT_FALSE(isGoodTIFF(changed(0x80000000, file.size() - 8)));
}

TEST(TIFFStructureTest, ADirectoryBeyondTheFileIsRefused) {
  auto file = withFields({});
  for (const std::uint32_t start : {static_cast<std::uint32_t>(file.size()), 0xFFFFFFFFU}) {
    file.replace(4, 4, kvltest::numberBytes(start, 4, ByteOrder::kLittle));
    EXPECT_FALSE(isGoodTIFF(file)) << start;
  }
}

}  // namespace
