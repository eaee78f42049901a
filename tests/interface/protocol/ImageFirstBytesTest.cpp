#include "platform/interface/protocol/ImageFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using kvl::interface::ImageFormat;
using namespace std::string_literals;

ImageFormat formatOf(std::string_view text) {
  return kvl::interface::imageFormatOf(
      {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

const std::pair<std::string, ImageFormat> kStarts[] = {{"\x89PNG\r\n\x1a\n", ImageFormat::kPNG},
                                                       {"\xFF\xD8\xFF", ImageFormat::kJPEG},
                                                       {"GIF87a", ImageFormat::kGIF},
                                                       {"GIF89a", ImageFormat::kGIF},
                                                       {"II*\0"s, ImageFormat::kTIFF},
                                                       {"MM\0*"s, ImageFormat::kTIFF},
                                                       {"RIFFsizeWEBP", ImageFormat::kWebP},
                                                       {"BM", ImageFormat::kBMP},
                                                       {"\0\0\1\0"s, ImageFormat::kICO},
                                                       {"\x1F\x8B\x08", ImageFormat::kSVG},
                                                       {"<", ImageFormat::kSVG},
                                                       {"\xEF\xBB\xBF<", ImageFormat::kSVG},
                                                       {"\xFF\xFE<\0"s, ImageFormat::kSVG},
                                                       {"\xFE\xFF\0<"s, ImageFormat::kSVG},
                                                       {"\0<"s, ImageFormat::kSVG},
                                                       {"%PDF-", ImageFormat::kPDF}};

TEST(ImageFirstBytesTest, EveryFormatIsToldByItsFirstBytes) {
  for (const auto& [start, format] : kStarts) {
    EXPECT_EQ(formatOf(start), format) << start;
    EXPECT_EQ(formatOf(start + "and more"), format) << start;
  }
}

TEST(ImageFirstBytesTest, AllOfThemCount) {
  for (const auto& [start, format] : kStarts) {
    const bool saysSize = format == ImageFormat::kWebP;
    for (std::size_t i = 0; i < start.size(); ++i) {
      if (saysSize && i >= 4 && i < 8) continue;
      auto other = start;
      other[i] = static_cast<char>(other[i] ^ 0x40);
      EXPECT_NE(formatOf(other), format) << start << " at " << i;
    }
    EXPECT_NE(formatOf(start.substr(0, start.size() - 1)), format) << start;
  }
}

TEST(ImageFirstBytesTest, WhatIsNoImageIsUnknown) {
  for (const std::string& text : {""s, "{\"a\":1}"s, "text"s, "GIF88a"s, "RIFFsizeWAVE"s,
                                  "RIFFsizWEBP"s, "\0\0\2\0"s, " \xEF\xBB\xBF<"s, "\v<"s, "x<"s,
                                  "\xFF\xFE"s, "\xFF\xFE<\1"s, "\xFE\xFF<\0"s, "\xEF\xBB\xBF"s}) {
    EXPECT_EQ(formatOf(text), ImageFormat::kUnknown) << text;
  }
}

TEST(ImageFirstBytesTest, BlanksMayComeBeforeMarkup) {
  for (const std::string& blanks : {" "s, "\t"s, "\r\n"s, " \n\n \t"s}) {
    EXPECT_EQ(formatOf(blanks + "<svg"), ImageFormat::kSVG);
    EXPECT_EQ(formatOf("\xEF\xBB\xBF" + blanks + "<svg"), ImageFormat::kSVG);
  }
  EXPECT_EQ(formatOf("\xFF\xFE \0\n\0<\0"s), ImageFormat::kSVG);
  EXPECT_EQ(formatOf("\xFE\xFF\0 \0\n\0<"s), ImageFormat::kSVG);
}

TEST(ImageFirstBytesTest, TheOrderOfBytesNeedNotBeMarked) {
  EXPECT_EQ(formatOf("<\0?\0x\0"s), ImageFormat::kSVG);
  EXPECT_EQ(formatOf("\0<\0?\0x"s), ImageFormat::kSVG);
}

TEST(ImageFirstBytesTest, OnlyTheFirstKibibyteIsLookedAt) {
  EXPECT_EQ(formatOf(std::string(1019, 'x') + "%PDF-"), ImageFormat::kPDF);
  EXPECT_EQ(formatOf(std::string(1020, 'x') + "%PDF-"), ImageFormat::kUnknown);
  EXPECT_EQ(formatOf(std::string(1023, ' ') + "<"), ImageFormat::kSVG);
  EXPECT_EQ(formatOf(std::string(1024, ' ') + "<"), ImageFormat::kUnknown);
}

TEST(ImageFirstBytesTest, ASignatureGoesBeforeWhatStandsFurtherBehind) {
  EXPECT_EQ(formatOf("GIF89a %PDF-"), ImageFormat::kGIF);
  EXPECT_EQ(formatOf("BM %PDF-"), ImageFormat::kPDF);
  EXPECT_EQ(formatOf("<!-- %PDF- -->"), ImageFormat::kPDF);
}

TEST(ImageFirstBytesTest, EachHasAName) {
  EXPECT_EQ(nameOf(ImageFormat::kUnknown), "unknown");
  EXPECT_EQ(nameOf(ImageFormat::kPNG), "PNG");
  EXPECT_EQ(nameOf(ImageFormat::kSVG), "SVG");
  EXPECT_EQ(nameOf(ImageFormat::kPDF), "PDF");
  EXPECT_EQ(nameOf(ImageFormat{10}), "unknown");
}

}  // namespace
