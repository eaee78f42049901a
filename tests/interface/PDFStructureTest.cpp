#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/PDFStructure.h"
#include "tests/interface/MadeBytes.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using kvltest::repeated;

bool isModest(const std::string& text) {
  return kvl::images::isModestPDF(kvltest::spanOf(text + "\n%%EOF"));
}

std::string packed(const std::string& content) {
  const kvl::images::ObjectPtr<GZlibCompressor> packer(
      g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_ZLIB, 1));
  std::string result(content.size() + 1'000, '\0');
  gsize taken = 0;
  gsize made = 0;
  EXPECT_EQ(
      g_converter_convert(G_CONVERTER(packer.get()), content.data(), content.size(), result.data(),
                          result.size(), G_CONVERTER_INPUT_AT_END, &taken, &made, nullptr),
      G_CONVERTER_FINISHED);
  EXPECT_EQ(taken, content.size());
  return result.substr(0, made);
}

std::string streamOf(const std::string& content) {
  return "stream\r\n" + packed(content) + "\nendstream\n";
}

TEST(PDFStructureTest, TheEndIsNearTheEndOfTheFile) {
  const auto hasEnd = [](std::size_t distance) {
    return kvl::images::isModestPDF(
        kvltest::spanOf("%PDF-1.4\n%%EOF" + std::string(distance, ' ')));
  };
  EXPECT_TRUE(hasEnd(0));
  EXPECT_TRUE(hasEnd(1'019));
  EXPECT_FALSE(hasEnd(1'020));
  EXPECT_TRUE(kvl::images::isModestPDF(kvltest::spanOf("%%EOF")));
  EXPECT_FALSE(kvl::images::isModestPDF(kvltest::spanOf("%%EO")));
  EXPECT_FALSE(kvl::images::isModestPDF({}));
}

TEST(PDFStructureTest, PackingsThatNothingLooksIntoAreRefused) {
  for (const std::string name : {"JBIG2Decode", "JPXDecode", "LZWDecode", "LZW", "ASCII85Decode",
                                 "A85", "ASCIIHexDecode", "AHx", "RunLengthDecode", "Encrypt"}) {
    EXPECT_TRUE(isModest(name)) << name;
    EXPECT_TRUE(isModest("/x" + name)) << name;
    EXPECT_TRUE(isModest("/" + name + "x")) << name;
    EXPECT_TRUE(isModest("/" + name.substr(1))) << name;
    for (const char end : std::string(" \t\r\n\f\0/<>[]()%{}", 16)) {
      EXPECT_FALSE(isModest("/" + name + end)) << name << end;
      EXPECT_FALSE(isModest("[/FlateDecode/" + name + end + "x")) << name << end;
    }
  }
  EXPECT_TRUE(isModest("/FlateDecode/DCTDecode/CCITTFaxDecode"));
  EXPECT_FALSE(kvl::images::isModestPDF(kvltest::spanOf("%%EOF/Encrypt")));
}

TEST(PDFStructureTest, EscapesInNamesAreResolved) {
  for (const char* name :
       {"#4cZW", "#4CZW", "L#5aW", "LZ#57", "LZ#57 ", "#4c#5A#57", "J#50XDecode"}) {
    EXPECT_FALSE(isModest("/" + std::string(name))) << name;
  }
  for (const char* name : {"LZ#58", "LZW#20", "LZW#2F", "#4gZW", "#g4ZW", "LZ#5", "LZW#"}) {
    EXPECT_TRUE(isModest("/" + std::string(name))) << name;
  }
  EXPECT_FALSE(kvl::images::isModestPDF(kvltest::spanOf("%%EOF/LZ#57")));
  EXPECT_TRUE(kvl::images::isModestPDF(kvltest::spanOf("%%EOF/LZ#5")));
}

TEST(PDFStructureTest, BitmapsMayHaveSizesUpToTheLimits) {
  for (const auto& [width, height] :
       {std::pair("Width", "Height"), std::pair("W", "H"), std::pair("Width", "H")}) {
    const auto isModestAt = [&](kvltest::Sides sides) {
      return isModest("<</" + std::string(width) + " " + std::to_string(sides.width) + "/" +
                      height + " " + std::to_string(sides.height) + ">>");
    };
    for (const auto sides : kvltest::kDecodableSides) {
      EXPECT_TRUE(isModestAt(sides)) << sides.width << " x " << sides.height;
    }
    for (const auto sides : kvltest::kUndecodableSides) {
      if (sides.width == 0 || sides.height == 0) continue;
      EXPECT_FALSE(isModestAt(sides)) << sides.width << " x " << sides.height;
    }
  }
}

// Which size belongs to which bitmap is not looked at.
TEST(PDFStructureTest, TheLongestSidesOfAllBitmapsCount) {
  EXPECT_TRUE(isModest("/Width 2048/Height 9 /Width 9/Height 2048"));
  EXPECT_FALSE(isModest("/Width 2049/Height 9 /Width 9/Height 2048"));
  EXPECT_FALSE(isModest("/Width 2048/Height 9 /Width 9/Height 2049"));
  EXPECT_FALSE(isModest("/Height 2049 /Height 9 /Width 2048"));
}

TEST(PDFStructureTest, ASizeIsANumberThatStandsThere) {
  for (const std::string size : {"1", " 1", "1 ", " \t\r\n\f1/", "000000001", "9 R", "9 x 7"}) {
    EXPECT_TRUE(isModest("/Width" +
                         (size[0] == '1' || size[0] == '0' || size[0] == '9' ? " " + size : size)))
        << size;
  }
  EXPECT_TRUE(isModest(std::string("/Width\0\0001\0/", 11)));
  for (const std::string size : {"", " ", " 0", " 7 0 R", " 7\n0 R", " x", "[1]", "(1)", " -1",
                                 " 0000000001", " 4294967297", " 18446744073709551617"}) {
    EXPECT_FALSE(isModest("/Width" + size)) << size;
    EXPECT_FALSE(isModest("/Height" + size)) << size;
    // The short names mean other things elsewhere.
    EXPECT_TRUE(isModest("/W" + size)) << size;
    EXPECT_TRUE(isModest("/H" + size)) << size;
    EXPECT_TRUE(isModest(streamOf("/Width" + size))) << size;
  }
}

// Readers take them for numbers, so they must not hide one that is too large.
TEST(PDFStructureTest, ASizeIsSeenBehindSignsZerosAndRemarksAndBeforeOtherNumbers) {
  for (const std::string size : {" 16385 0 /X", " 16385 0 Rx", " +16385", " 0000000000016385",
                                 " %x\n16385", " %x\n%y\r\n 16385"}) {
    EXPECT_FALSE(isModest("/W" + size)) << size;
    EXPECT_FALSE(isModest(streamOf("/Width" + size))) << size;
  }
  // Where the number itself stands elsewhere, that is refused where it must be a number.
  for (const std::string size : {" 7 %x\n0 R", " 7 0 R/", " 7 0 %x\nR"}) {
    EXPECT_FALSE(isModest("/Width" + size)) << size;
    EXPECT_TRUE(isModest("/W" + size)) << size;
  }
}

// Behind much of what readers pass over a number could hide.
TEST(PDFStructureTest, ASizeThatIsFarFromItsNameIsRefused) {
  const std::string remark = "%" + std::string(200, 'x') + "\n";
  for (const std::string& far : {std::string(50, ' '), repeated("%x\n", 20), remark}) {
    EXPECT_FALSE(isModest("/W " + far + "9 /x")) << far;
    EXPECT_FALSE(isModest(streamOf("/Height " + far + "9 /x"))) << far;
  }
  for (const std::string& size : {"7 " + remark + "0 R", "7 0 " + remark + "R"}) {
    EXPECT_FALSE(isModest("/Width " + size + " /x")) << size;
  }
  EXPECT_FALSE(isModest("/W " + std::string(21, '0') + " /x"));
}

// Each is looked at for itself, so this takes no time to speak of.
TEST(PDFStructureTest, AMillionNamesInRemarksAreLookedThrough) {
  EXPECT_FALSE(isModest(repeated("%/W\n", 1'000'000)));
  EXPECT_TRUE(isModest(repeated("/W 9 x%/W 9 x\n", 500'000)));
}

TEST(PDFStructureTest, OnlyPatternsThatShadeAreDrawn) {
  EXPECT_TRUE(isModest("/PatternType 2"));
  for (const char* type : {"0", "1", "3", "7 0 R", "x"}) {
    EXPECT_FALSE(isModest("/PatternType " + std::string(type))) << type;
  }
  EXPECT_TRUE(isModest(streamOf("/PatternType 1 /Encrypt")));
}

TEST(PDFStructureTest, BitmapsWithinStreamsAreFound) {
  EXPECT_TRUE(isModest(streamOf("BI /W 2048 /H 2048 ID")));
  EXPECT_FALSE(isModest(streamOf("BI /W 2048 /H 2049 ID")));
  EXPECT_FALSE(isModest(streamOf("q") + streamOf("q") + streamOf("BI /W 16385 ID")));
  EXPECT_FALSE(isModest("/Width 2049 " + streamOf("BI /H 2048 ID")));
}

TEST(PDFStructureTest, BitmapsAreFoundWhereverTheyStandInALongStream) {
  const std::string bitmap = "BI /W 16385 ID";
  for (std::size_t piece = 1; piece <= 2; ++piece) {
    for (std::size_t distance = 0; distance <= bitmap.size(); ++distance) {
      const auto before = piece * 65'536 - distance;
      EXPECT_FALSE(isModest(streamOf(std::string(before, 'x') + bitmap + std::string(99, 'x'))))
          << before;
    }
  }
  EXPECT_FALSE(
      isModest(streamOf(std::string(65'520, 'x') + "/W" + std::string(40, ' ') + "16385 ")));
}

TEST(PDFStructureTest, WhatComesBeforeAFaultInAStreamIsLookedAt) {
  const std::string noise = "\x81\x92\xA3\xB4\xC5\xD6\xE7\xF8";
  auto content = "/W 16385 " + noise;
  auto damaged = packed(content);
  damaged.resize(damaged.size() - 4);
  EXPECT_FALSE(isModest("stream\n" + damaged + "????\nendstream"));
  EXPECT_TRUE(isModest("stream\n????\nendstream"));
  EXPECT_TRUE(isModest("stream"));
  EXPECT_TRUE(isModest("stream\r\n"));
}

TEST(PDFStructureTest, StreamsTogetherUnpackToUpTo64MiB) {
  const std::string mebibyte(std::size_t{1} << 20, ' ');
  const auto sixteen = streamOf(repeated(mebibyte, 16));
  EXPECT_TRUE(isModest(repeated(sixteen, 3)));
  EXPECT_FALSE(isModest(repeated(sixteen, 4)));
}

// The end of a stream is not the start of another, which would count for much more.
TEST(PDFStructureTest, AFileMayHaveThousandsOfStreams) {
  EXPECT_TRUE(isModest(repeated(streamOf("q Q"), 3'000)));
}

}  // namespace
