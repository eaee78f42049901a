#include "tests/interface/ImageFolder.h"
#include "tests/interface/MadeImages.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Sanitized.h"

#include <local/platform/Image.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace {

using kvltest::writtenPDF;
using kvltest::writtenSVG;

std::shared_ptr<kvl::Image> imageOf(std::string_view text) {
  return kvl::Image::imageWithData(kvl::Data::fromText(text));
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

TEST(ImageLimitTest, GarbageIsNoImage) {
  EXPECT_EQ(kvl::Image::imageWithData({}), nullptr);
  for (const char* text :
       {"x", "not an image", "<", "<html></html>", "%PDF-1.4", "RIFFxxxxWEBP", "GIF89a", "II*",
        "MM", "\xFF\xD8\xFF", "{\"a\":1}", "BM", "%PDF-%%EOF"}) {
    EXPECT_EQ(imageOf(text), nullptr) << text;
  }
}

TEST(ImageLimitTest, OtherFormatsOfTheDecodersAreNotTried) {
  EXPECT_EQ(imageOf("/* XPM */\nstatic char *a[]={\"1 1 1 1\",\"a c #ffffff\",\"a\"};"), nullptr);
  EXPECT_EQ(imageOf("P3 1 1 255 255 0 0\n"), nullptr);
}

TEST(ImageLimitTest, LongBodiesAreNoImage) {
  std::string longest(kvltest::madePixbuf("png", 32, 16).text());
  longest.resize(kvl::kMaximumImageBytes);
  EXPECT_NE(imageOf(longest), nullptr);
  EXPECT_EQ(imageOf(longest + '\0'), nullptr);
}

TEST(ImageLimitTest, SizesThatOnlyTheHeaderClaimsAreNoImage) {
  const auto png = kvltest::madePixbuf("png", 32, 16);
  EXPECT_NE(kvl::Image::imageWithData(claiming(png, 32, 16)), nullptr);
  // Sanitizers leave no room for a limit of memory.
  if (!kvltest::kSanitized) {
    EXPECT_EQ(kvl::Image::imageWithData(claiming(png, 16'000, 16'000)), nullptr);
  }
  EXPECT_EQ(kvl::Image::imageWithData(claiming(png, 0x7FFFFFFF, 16)), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(changed(kvltest::madeGIF(1), 6, {255, 255, 255, 255})),
            nullptr);
  // The size of the picture within the animation.
  EXPECT_EQ(kvl::Image::imageWithData(changed(kvltest::madeGIF(1), 24, {255, 255, 255, 255})),
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
    EXPECT_EQ(image->rasterised(1).width, 5792U);
  }
}

// A photograph of a camera, or what a program shows of a large screen.
TEST(ImageLimitTest, LargeBitmapsAreDrawnAtTheSizeOfAnIcon) {
  for (const char* format : {"png", "jpeg", "tiff", "bmp"}) {
    const auto image = kvl::Image::imageWithData(kvltest::madePixbuf(format, 3840, 1440));
    ASSERT_NE(image, nullptr) << format;
    EXPECT_EQ(image->naturalSize(), (kvl::Size{3840, 1440})) << format;
    image->setSize({32, 12});
    const auto bitmap = image->rasterised(1);
    ASSERT_EQ(bitmap.width, 32U) << format;
    EXPECT_GT(kvltest::pixelAt(bitmap, 4, 6)[0], 200) << format;
    EXPECT_GT(kvltest::pixelAt(bitmap, 28, 6)[2], 200) << format;
  }
}

TEST(ImageLimitTest, EachRefusalHasALineInTheLog) {
  const kvltest::LogCapture log;
  EXPECT_EQ(imageOf("no image"), nullptr);
  EXPECT_EQ(kvl::Image::imageWithData(writtenSVG("width='1e30' height='1'", "")), nullptr);
  EXPECT_EQ(imageOf("GIF89a"), nullptr);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"image refused: data of 8 bytes: no known format",
                                      "image refused: SVG of 113 bytes: it is too large",
                                      "image refused: GIF of 6 bytes: there is no image inside"}));
}

}  // namespace
