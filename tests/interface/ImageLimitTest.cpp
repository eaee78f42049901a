#include "tests/interface/ImageFolder.h"
#include "tests/interface/MadeImages.h"
#include "tests/support/Sanitized.h"

#include <local/platform/Image.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>

namespace {

using kvltest::writtenPDF;
using kvltest::writtenSVG;

std::shared_ptr<kvl::Image> imageOf(std::string_view text) {
  return kvl::Image::imageWithData(kvl::Data::fromText(text));
}

constexpr const char* kLongPath = "<path stroke='red' d='M0 0l9 9H1e7'/>";

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

// The PNG with the given size in its header, whose checksum is right.
kvl::Data claiming(const kvl::Data& png, std::uint32_t width, std::uint32_t height) {
  constexpr std::size_t kName = 12;
  constexpr std::size_t kSum = 29;
  const auto byte = [](std::uint32_t number, int shift) {
    return static_cast<std::uint8_t>(number >> shift);
  };
  const auto inOrder = [&byte](std::uint32_t number) {
    return std::array{byte(number, 24), byte(number, 16), byte(number, 8), byte(number, 0)};
  };
  kvl::Bytes bytes(png.bytes().begin(), png.bytes().end());
  std::ranges::copy(inOrder(width), bytes.begin() + kName + 4);
  std::ranges::copy(inOrder(height), bytes.begin() + kName + 8);
  std::uint32_t sum = 0xFFFFFFFF;
  for (std::size_t bit = kName * 8; bit < kSum * 8; ++bit) {
    const auto next = (sum ^ (std::uint32_t{bytes[bit / 8]} >> bit % 8)) & 1;
    sum = (sum >> 1) ^ (next != 0 ? 0xEDB88320U : 0U);
  }
  std::ranges::copy(inOrder(~sum), bytes.begin() + kSum);
  return kvl::Data(std::move(bytes));
}

// From now on the most memory counts from what this process has.
bool forgetPeakMemory() {
  std::ofstream reset("/proc/self/clear_refs");
  reset << "5" << std::flush;
  return reset.good();
}

// The most memory that this process has had since, in KiB.
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
  std::string longest(kvltest::madePixbuf("png", 32, 16).text());
  longest.resize(kvl::kMaximumImageBytes);
  EXPECT_NE(imageOf(longest), nullptr);
  EXPECT_EQ(imageOf(longest + '\0'), nullptr);
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
  EXPECT_NE(kvl::Image::imageWithData(claiming(png, 32, 16)), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(claiming(png, 16'000, 16'000)), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(claiming(png, 0x7FFFFFFF, 16)), nullptr);
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
  const kvltest::ImageFolder folder;
  const auto png = folder.write("a.png", kvltest::madePixbuf("png", 32, 16).text());
  const auto svg = folder.write(
      "a.svg", writtenSVG("", "<rect id='a' width='32' height='16' fill='red'/>").text());
  const auto sheet = folder.write("a.css", "rect{fill:red !important}");
  const kvltest::WorkingDirectory inside(folder.path());
  const auto imageAt = [](const std::string& address) {
    return "<image width='32' height='16' href='" + address + "'/>" +
           "<image width='32' height='16' xlink:href='" + address + "'/>";
  };
  for (const auto& element :
       {imageAt("file://" + png), imageAt(png), imageAt("a.png"),
        imageAt("http://127.0.0.1:9/a.png"), "<use href='file://" + svg + "#a'/>",
        std::string("<use href='a.svg#a'/>"), "<style>@import 'file://" + sheet + "';</style>",
        std::string("<style>@import 'a.css';</style>"),
        "<include xmlns='http://www.w3.org/2001/XInclude' href='file://" + svg + "'/>"}) {
    const auto image = kvl::Image::imageWithData(writtenSVG(
        "width='32' height='16'", "<rect width='32' height='16' fill='lime'/>" + element));
    ASSERT_NE(image, nullptr) << element;
    EXPECT_EQ(kvltest::pixelAt(image->rasterised(1), 8, 8), (kvltest::Pixel{0, 255, 0, 255}))
        << element;
  }
}

TEST(ImageLimitTest, AnSVGWithFilesInsideIsNoImage) {
  for (const char* element :
       {"<image href='data:image/png;base64,AAAA'/>", "<image xlink:href=' DATA:image/png,a'/>",
        "<image href='d&#97;ta:image/png,a'/>", "<image href='da&#10;ta:image/png,a'/>",
        "<rect fill='url(\\64 ata:image/svg+xml,a#b)'/>",
        "<style>@import 'data:text/css,a';</style>",
        "<style><![CDATA[@import 'data:text/css,a';]]></style>", "<?xml-stylesheet href='data:a'?>",
        // The renderer joins what stands around comments and the like.
        "<style><a/>@import 'data:text/css,a';</style>",
        "<style>@import 'da<![CDATA[ta:text/css,a';]]></style>",
        "<style>@import 'da<!-- x -->ta:text/css,a';</style>",
        "<style>@import 'da<?x y?>ta:text/css,a';</style>",
        "<style>@import 'da<style>x</style>ta:text/css,a';</style>"}) {
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
      {"dashes from a sheet with an element",
       "<style><a/>path{stroke-dasharray:2}</style>" + std::string(kLongPath)},
      {"dashes from a sheet with a section",
       "<style>path{stroke-dash<![CDATA[array:2}]]></style>" + std::string(kLongPath)},
      {"dashes from a sheet with a comment",
       "<style>path{stroke-dash<!-- x -->array:2}</style>" + std::string(kLongPath)},
      {"dashes from a sheet with an instruction",
       "<style>path{stroke-dash<?x y?>array:2}</style>" + std::string(kLongPath)},
      {"dashes from a sheet within a sheet",
       "<style>path{stroke-dash<style>x</style>array:2}</style>" + std::string(kLongPath)},
      {"dashes from the first of two sheets",
       "<style>path{stroke-dasharray:2</style><style>none{}</style>" + std::string(kLongPath)},
      {"dashes with a remark",
       "<style>path{stroke-dasharray:2/*none*/}</style>" + std::string(kLongPath)},
      {"pattern", "<pattern width='20000' height='20000'/>"},
      {"length", "<!--" + std::string(1 << 20, 'x') + "-->"}};
  for (const auto& [name, elements] : cases) {
    EXPECT_EQ(kvl::Image::imageWithData(writtenSVG("width='9' height='9'", elements)), nullptr)
        << name;
  }
}

TEST(ImageLimitTest, AnSVGMayHaveStyleSheets) {
  for (const char* sheets :
       {"<style>path{stroke-dash<!-- x -->array:2}</style>",
        "<style><![CDATA[path{fill:red}]]></style><style>path{stroke-dasharray:none}</style>"}) {
    const auto image = kvl::Image::imageWithData(writtenSVG(
        "width='9' height='9'", sheets + std::string("<path stroke='red' d='M0 0l9 9H1'/>")));
    EXPECT_NE(image, nullptr) << sheets;
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
  EXPECT_NE(kvl::Image::imageWithData(writtenPDF(
                "0 0 9 9", "/R Do", stream("/Type/XObject/Subtype/Image/Width 8/Height 8"))),
            nullptr);
  for (const char* entries :
       {"/Type/XObject/Subtype/Image/Width 8000/Height 8000", "/W#69dth 8000/Height 8000",
        "/Subtype/Image/Width 7 0 R/Height 1", "/PatternType 1/XStep 20000", "/PatternType 7 0 R",
        "/Filter/JBIG2Decode", "/Filter/JPXDecode", "/Filter[/ASCII85Decode/FlateDecode]",
        "/Encrypt 9 0 R"}) {
    EXPECT_EQ(kvl::Image::imageWithData(writtenPDF("0 0 9 9", "/R Do", stream(entries))), nullptr)
        << entries;
  }
  EXPECT_NE(kvl::Image::imageWithData(writtenPDF("0 0 9 9", "BI /W 12 /H 12 ID x EI")), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(writtenPDF("0 0 9 9", "BI /W 12000 /H 12000 ID x EI")),
            nullptr);
}

// A stream of two stored blocks: the header of the second splits the content, so that it is found
// only when unpacked.
kvl::Data withPackedStream(std::string_view content) {
  std::string packed(
      "\x78\x01\x00\x04\x00\xFB\xFF"
      "BI /",
      11);
  const std::string_view rest = content.substr(4);
  packed += "\x01";
  packed += static_cast<char>(rest.size());
  packed += '\0';
  packed += static_cast<char>(~rest.size());
  packed += '\xFF';
  packed += rest;
  return writtenPDF("0 0 9 9", "", "<</Length 99>>stream\n" + packed + "\nendstream");
}

TEST(ImageLimitTest, APDFWithTooMuchInsideAPackedStreamIsNoImage) {
  EXPECT_NE(kvl::Image::imageWithData(withPackedStream("BI /W 12 /H 12 /BPC 1 ID x EI")), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(withPackedStream("BI /W 12000 /H 12000 /BPC 1 ID x EI")),
            nullptr);
}

// Each takes time, however little is in it.
TEST(ImageLimitTest, APDFOfTooManyStreamsIsNoImage) {
  const auto streams = [](int count) {
    return writtenPDF("0 0 9 9", "",
                      repeated(std::string("stream\n\x78\x9C\3\0\0\0\0\1", 15), count));
  };
  EXPECT_NE(kvl::Image::imageWithData(streams(100)), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(streams(70'000)), nullptr);
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
      claiming(kvltest::madePixbuf("png", 32, 16), 16'000, 16'000),
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
      writtenSVG("width='9' height='9'",
                 "<style><a/>path{stroke-dasharray:2}</style>" + std::string(kLongPath)),
      writtenPDF("0 0 9 9", "BI /W 12000 /H 12000 /BPC 1 /CS /G ID x EI"),
      writtenPDF("0 0 14400 14400", "1 0 0 rg 0 0 9999 9999 re f")};
  if (!forgetPeakMemory()) GTEST_SKIP() << "earlier peaks cannot be left out";
  const auto before = peakMemory();
  for (const auto& data : hostile) {
    const auto image = kvl::Image::imageWithData(data);
    if (image) static_cast<void>(image->rasterised(1000));
  }
  const auto growth = peakMemory() - before;
  RecordProperty("KiB", std::to_string(growth));
  EXPECT_LT(growth, 64 * 1024);
}

}  // namespace
