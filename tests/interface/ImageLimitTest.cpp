#include "tests/interface/MadeImages.h"
#include "tests/support/Sanitized.h"

#include <local/platform/Image.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace {

using kvltest::writtenPDF;
using kvltest::writtenSVG;

std::shared_ptr<kvl::Image> imageOf(std::string_view text) {
  return kvl::Image::imageWithData(kvl::Data::fromText(text));
}

std::string repeated(std::string_view text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

void put(kvl::Bytes& bytes, std::size_t position, std::initializer_list<std::uint8_t> values) {
  std::copy(values.begin(), values.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position));
}

kvl::Data changed(const kvl::Data& data, std::size_t position,
                  std::initializer_list<std::uint8_t> values) {
  kvl::Bytes bytes(data.bytes().begin(), data.bytes().end());
  put(bytes, position, values);
  return kvl::Data(std::move(bytes));
}

// The most memory that this process has had at any time, in KiB.
long peakMemory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    if (word == "VmHWM:") break;
  }
  long peak = 0;
  status >> peak;
  return peak;
}

TEST(ImageLimitTest, GarbageIsNoImage) {
  EXPECT_EQ(kvl::Image::imageWithData({}), nullptr);
  for (const char* text :
       {"x", "not an image", "<", "<html></html>", "%PDF-1.4", "RIFFxxxxWEBP", "GIF89a", "II*",
        "MM", "\xFF\xD8\xFF", "{\"a\":1}", "BM", "%PDF-%%EOF"}) {
    EXPECT_EQ(imageOf(text), nullptr) << text;
  }
}

TEST(ImageLimitTest, OtherFormatsOfTheDecodersAreNotTried) {
  EXPECT_EQ(kvl::Image::imageWithData(kvltest::madePixbuf("bmp", 8, 8)), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(kvltest::madePixbuf("ico", 8, 8)), nullptr);
  EXPECT_EQ(imageOf("/* XPM */\nstatic char *a[]={\"1 1 1 1\",\"a c #ffffff\",\"a\"};"), nullptr);
}

TEST(ImageLimitTest, LongBodiesAreNoImage) {
  const auto svg = kvltest::madePDF();
  const std::string end(kvl::kMaximumImageBytes - svg.size(), '\n');
  const auto padded = std::string(svg.text()) + end;
  EXPECT_EQ(imageOf(padded + "\n"), nullptr);
}

TEST(ImageLimitTest, PicturesOfTooManyPixelsAreNoImage) {
  EXPECT_NE(kvl::Image::imageWithData(kvltest::madePixbuf("png", 2048, 2048)), nullptr);
  for (const char* format : {"png", "jpeg", "tiff"}) {
    EXPECT_EQ(kvl::Image::imageWithData(kvltest::madePixbuf(format, 2048, 2049)), nullptr)
        << format;
    EXPECT_EQ(kvl::Image::imageWithData(kvltest::madePixbuf(format, 16385, 1)), nullptr) << format;
  }
}

TEST(ImageLimitTest, SizesThatOnlyTheHeaderClaimsAreNoImage) {
  const auto png = kvltest::madePixbuf("png", 32, 16);
  EXPECT_EQ(kvl::Image::imageWithData(changed(png, 16, {0, 0, 0x3E, 0x80, 0, 0, 0x3E, 0x80})),
            nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(changed(png, 16, {0x7F, 0xFF, 0xFF, 0xFF})), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(changed(kvltest::madeGIF(1), 6, {255, 255, 255, 255})),
            nullptr);
  // The size of the picture within the animation.
  EXPECT_EQ(kvl::Image::imageWithData(changed(kvltest::madeGIF(1), 24, {255, 255, 255, 255})),
            nullptr);
}

TEST(ImageLimitTest, EntitiesOfAnSVGAreNotExpanded) {
  std::string entities = "<!ENTITY a0 'lol'>";
  for (int i = 1; i < 10; ++i) {
    entities += "<!ENTITY a" + std::to_string(i) + " '" +
                repeated("&a" + std::to_string(i - 1) + ";", 10) + "'>";
  }
  EXPECT_EQ(imageOf("<!DOCTYPE svg [" + entities +
                    "]><svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'>"
                    "<text>&a9;</text></svg>"),
            nullptr);
}

TEST(ImageLimitTest, WhatAnSVGRefersToElsewhereIsLeftOut) {
  const auto image = kvl::Image::imageWithData(
      writtenSVG("width='32' height='16'",
                 "<rect width='32' height='16' fill='lime'/>"
                 "<image width='32' height='16' href='file:///usr/share/pixmaps/a.png'/>"
                 "<image width='32' height='16' xlink:href='http://127.0.0.1:9/a.png'/>"
                 "<use href='other.svg#a'/>"));
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(kvltest::pixelAt(image->rasterised(1), 16, 8), (kvltest::Pixel{0, 255, 0, 255}));
}

TEST(ImageLimitTest, AnSVGWithFilesInsideIsNoImage) {
  for (const char* element :
       {"<image href='data:image/png;base64,AAAA'/>", "<image xlink:href=' DATA:image/png,a'/>",
        "<image href='d&#97;ta:image/png,a'/>", "<image href='da&#10;ta:image/png,a'/>",
        "<rect fill='url(\\64 ata:image/svg+xml,a#b)'/>",
        "<style>@import 'data:text/css,a';</style>",
        "<style><![CDATA[@import 'data:text/css,a';]]></style>",
        "<?xml-stylesheet href='data:a'?>"}) {
    EXPECT_EQ(kvl::Image::imageWithData(writtenSVG("width='9' height='9'", element)), nullptr)
        << element;
  }
}

TEST(ImageLimitTest, AnSVGInAnotherEncodingIsNoImage) {
  const std::string svg(kvltest::madeSVG().text());
  EXPECT_NE(imageOf("\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>\n" + svg), nullptr);
  EXPECT_EQ(imageOf("<?xml version='1.0' encoding='UTF-7'?>" + svg), nullptr);
}

TEST(ImageLimitTest, AnSVGThatWouldTakeTooMuchIsNoImage) {
  const std::pair<const char*, std::string> cases[] = {
      {"elements", repeated("<g/>", 10'001)},
      {"depth", repeated("<g>", 300) + repeated("</g>", 300)},
      {"path", "<path d='M0 0" + repeated("h9v9", 9000) + "'/>"},
      {"glyphs", "<text>" + repeated("<tspan>WWWWWWWW</tspan>", 600) + "</text>"},
      {"style", "<style>" + repeated("a{fill:red}", 4000) + "</style>"},
      {"dashes", "<path stroke-dasharray='.2' d='M0 0H1e9'/>"},
      {"styled dashes", "<line style='stroke-dasharray:1' x2='9000000'/>"},
      {"pattern", "<pattern width='20000' height='20000'/>"},
      {"length", "<!--" + std::string(1 << 20, 'x') + "-->"}};
  for (const auto& [name, elements] : cases) {
    EXPECT_EQ(kvl::Image::imageWithData(writtenSVG("width='9' height='9'", elements)), nullptr)
        << name;
  }
}

TEST(ImageLimitTest, AnSVGMayHaveDashesAndManyElements) {
  EXPECT_NE(kvl::Image::imageWithData(
                writtenSVG("width='9' height='9'",
                           "<rect width='8' height='8' stroke='#999999' stroke-dasharray='2 1'/>" +
                               repeated("<g/>", 5000))),
            nullptr);
}

TEST(ImageLimitTest, AnSVGWithManyLayersComesWithFewerPixels) {
  const auto image = kvl::Image::imageWithData(writtenSVG(
      "width='512' height='512'", repeated("<g opacity='.99'>", 200) +
                                      "<rect width='512' height='512'/>" + repeated("</g>", 200)));
  ASSERT_NE(image, nullptr);
  const auto bitmap = image->rasterised(1);
  EXPECT_GT(bitmap.width, 64U);
  EXPECT_LT(bitmap.width, 256U);
}

TEST(ImageLimitTest, HugeDrawingsAreNoImage) {
  EXPECT_EQ(kvl::Image::imageWithData(writtenSVG("viewBox='0 0 1e9 1e9'", "")), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(writtenSVG("width='1e30' height='1'", "")), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(writtenPDF("0 0 1000000000 1000000000", "")), nullptr);
}

TEST(ImageLimitTest, LargeDrawingsFitTheLargestBitmap) {
  for (const auto& data :
       {writtenSVG("width='14400' height='14400'", ""), writtenPDF("0 0 14400 14400", "")}) {
    const auto image = kvl::Image::imageWithData(data);
    ASSERT_NE(image, nullptr);
    EXPECT_NEAR(image->rasterised(1).width, 1024, 1);
  }
}

TEST(ImageLimitTest, APDFWithTooMuchInsideIsNoImage) {
  const auto stream = [](const char* entries) {
    return "<<" + std::string(entries) + "/Length 1>>stream\nx\nendstream";
  };
  for (const char* entries :
       {"/Type/XObject/Subtype/Image/Width 8000/Height 8000", "/W#69dth 8000/Height 8000",
        "/Subtype/Image/Width 7 0 R/Height 1", "/PatternType 1/XStep 20000", "/PatternType 7 0 R",
        "/Filter/JBIG2Decode", "/Filter/JPXDecode", "/Filter[/ASCII85Decode/FlateDecode]",
        "/Encrypt 9 0 R"}) {
    EXPECT_EQ(kvl::Image::imageWithData(writtenPDF("0 0 9 9", "/R Do", stream(entries))), nullptr)
        << entries;
  }
  EXPECT_EQ(kvl::Image::imageWithData(writtenPDF("0 0 9 9", "BI /W 12000 /H 12000 ID x EI")),
            nullptr);
}

TEST(ImageLimitTest, APDFWithTooMuchInsideAPackedStreamIsNoImage) {
  const std::string_view content = "BI /W 12000 /H 12000 /BPC 1 ID x EI";
  // Split in two by the block's header, so that it is found only when unpacked.
  std::string first(
      "\x78\x01\x00\x04\x00\xFB\xFF"
      "BI /",
      11);
  const std::string_view rest = content.substr(4);
  first += "\x01";
  first += static_cast<char>(rest.size());
  first += '\0';
  first += static_cast<char>(~rest.size());
  first += '\xFF';
  first += rest;
  const auto data = writtenPDF("0 0 9 9", "", "<</Length 99>>stream\n" + first + "\nendstream");
  EXPECT_EQ(kvl::Image::imageWithData(data), nullptr);
}

// What hostile images take while they are refused, or decoded and drawn.
TEST(ImageMemoryTest, StaysBelow64MiB) {
  if (kvltest::kSanitized) GTEST_SKIP() << "memory that is freed stays in use for a while";
  for (const auto& [name, data] : kvltest::madeImages()) {
    const auto image = kvl::Image::imageWithData(data);
    ASSERT_NE(image, nullptr) << name;
    static_cast<void>(image->rasterised(1));
  }
  const kvl::Data hostile[] = {
      kvltest::madePixbuf("png", 2048, 2048),
      kvltest::madePixbuf("tiff", 2048, 2048),
      kvltest::madePixbuf("jpeg", 2048, 2048),
      changed(kvltest::madePixbuf("png", 32, 16), 16, {0, 0, 0x3E, 0x80, 0, 0, 0x3E, 0x80}),
      writtenSVG("width='1024' height='1024'", repeated("<g opacity='.99'>", 200) +
                                                   "<rect width='9' height='9'/>" +
                                                   repeated("</g>", 200)),
      writtenSVG("width='9' height='9'",
                 "<pattern id='p' patternUnits='userSpaceOnUse' "
                 "width='20000' height='20000'><rect width='20000' "
                 "height='20000'/></pattern>"
                 "<rect width='9' height='9' fill='url(#p)'/>"),
      writtenSVG("width='9' height='9'",
                 "<path stroke='red' stroke-dasharray='.2' d='M0 0l9 9H1e9'/>"),
      writtenPDF("0 0 9 9", "BI /W 12000 /H 12000 /BPC 1 /CS /G ID x EI"),
      writtenPDF("0 0 14400 14400", "1 0 0 rg 0 0 9999 9999 re f")};
  const auto before = peakMemory();
  for (const auto& data : hostile) {
    const auto image = kvl::Image::imageWithData(data);
    if (image) static_cast<void>(image->rasterised(1000));
  }
  EXPECT_LT(peakMemory() - before, 64 * 1024);
}

}  // namespace
