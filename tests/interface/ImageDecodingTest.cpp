#include "tests/interface/MadeBytes.h"
#include "tests/interface/MadeImages.h"

#include <local/platform/Image.h>

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using kvltest::ByteOrder;
using kvltest::numberBytes;
using kvltest::Pixel;
using kvltest::pixelAt;

std::shared_ptr<kvl::Image> decoded(std::string_view bytes) {
  return kvl::Image::imageWithData(kvl::Data::fromText(bytes));
}

void expectColors(const std::shared_ptr<kvl::Image>& image) {
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->naturalSize(), (kvl::Size{32, 16}));
  const auto bitmap = image->rasterised(1);
  ASSERT_EQ(bitmap.width, 32U);
  EXPECT_EQ(pixelAt(bitmap, 4, 8), (Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(bitmap, 28, 8), (Pixel{0, 0, 255, 255}));
}

TEST(ImageDecodingTest, OlderGIFsAreDecodedToo) {
  std::string gif(kvltest::madeGIF(1).text());
  gif.replace(3, 3, "87a");
  expectColors(decoded(gif));
  gif.replace(3, 3, "88a");
  EXPECT_EQ(decoded(gif), nullptr);
}

TEST(ImageDecodingTest, TIFFsWithTheHighestByteFirstAreDecodedToo) {
  const auto entry = [](std::uint32_t tag, std::uint32_t value) {
    return numberBytes(tag, 2) + numberBytes(4, 2) + numberBytes(1, 4) + numberBytes(value, 4);
  };
  constexpr std::uint32_t kDirectorySize = 2 + 7 * 12 + 4;
  std::string pixels;
  for (std::size_t row = 0; row < 16; ++row)
    pixels += std::string(16, '\0') + std::string(16, '\xFF');
  const auto file = std::string("MM\0*", 4) + numberBytes(8, 4) + numberBytes(7, 2) +
                    entry(256, 32) + entry(257, 16) + entry(258, 8) + entry(262, 1) +
                    entry(273, 8 + kDirectorySize) + entry(278, 16) + entry(279, 32 * 16) +
                    numberBytes(0, 4) + pixels;
  const auto image = decoded(file);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(pixelAt(image->rasterised(1), 4, 8), (Pixel{0, 0, 0, 255}));
  EXPECT_EQ(pixelAt(image->rasterised(1), 28, 8), (Pixel{255, 255, 255, 255}));
}

TEST(ImageDecodingTest, BlanksAndAByteOrderMarkMayComeBeforeMarkup) {
  const std::string svg(kvltest::madeSVG().text());
  expectColors(decoded("\xEF\xBB\xBF" + svg));
  for (const std::string blank : {" ", "\t", "\r", "\n", " \t\r\n\n"}) {
    expectColors(decoded(blank + svg));
    expectColors(decoded(std::string("\xEF\xBB\xBF").append(blank).append(svg)));
  }
  EXPECT_EQ(decoded("x" + svg), nullptr);
  EXPECT_EQ(decoded("\v" + svg), nullptr);
  EXPECT_EQ(decoded(" \xEF\xBB\xBF" + svg), nullptr);
}

TEST(ImageDecodingTest, TheHeaderOfAPDFIsWithinItsFirstKibibyte) {
  const std::string pdf(kvltest::madePDF().text());
  expectColors(decoded(std::string(1'019, '\n') + pdf));
  EXPECT_EQ(decoded(std::string(1'020, '\n') + pdf), nullptr);
}

TEST(ImageDecodingTest, AFormatIsToldByAllOfItsFirstBytes) {
  for (const auto& [name, data] : kvltest::madeImages()) {
    if (name == "SVG" || name == "PDF") continue;
    for (const std::size_t place : {0, 1, 2, 3}) {
      std::string bytes(data.text());
      if (name == "JPEG" && place == 3) continue;
      if (name == "BMP" && place > 1) continue;
      bytes[place] = static_cast<char>(bytes[place] ^ 1);
      EXPECT_EQ(decoded(bytes), nullptr) << name << " at " << place;
    }
  }
  std::string webP(kvltest::madeWebP().text());
  webP[11] = 'Q';
  EXPECT_EQ(decoded(webP), nullptr);
}

TEST(ImageDecodingTest, APictureMayBeOnePixelWideOrHigh) {
  for (const char* format : {"png", "jpeg", "tiff"}) {
    for (const auto& [width, height] : {std::pair(1, 1), std::pair(1, 16), std::pair(16, 1)}) {
      const auto image = kvl::Image::imageWithData(kvltest::madePixbuf(format, width, height));
      ASSERT_NE(image, nullptr) << format << " " << width << " x " << height;
      EXPECT_EQ(image->naturalSize(), (kvl::Size{double(width), double(height)})) << format;
    }
  }
}

TEST(ImageDecodingTest, ColorsAreMultipliedByTheAlpha) {
  GdkPixbuf* const pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 3, 2);
  gdk_pixbuf_fill(pixbuf, 0xFF804080);
  char* bytes = nullptr;
  gsize size = 0;
  ASSERT_TRUE(gdk_pixbuf_save_to_buffer(pixbuf, &bytes, &size, "png", nullptr, nullptr));
  const auto image = decoded({bytes, size});
  g_free(bytes);
  g_object_unref(pixbuf);
  ASSERT_NE(image, nullptr);
  const auto bitmap = image->rasterised(1);
  EXPECT_EQ(pixelAt(bitmap, 0, 0), (Pixel{128, 64, 32, 128}));
  EXPECT_EQ(pixelAt(bitmap, 2, 1), (Pixel{128, 64, 32, 128}));
}

// With the note of a camera that was held upright.
TEST(ImageDecodingTest, APhotographIsTurnedAsItsFileSays) {
  const std::string note = std::string("Exif\0\0II*\0\x08\0\0\0\x01\0", 16) +
                           std::string("\x12\x01\x03\0\x01\0\0\0\x06\0\0\0\0\0\0\0", 16);
  const std::string jpeg(kvltest::madePixbuf("jpeg", 32, 16).text());
  const auto image =
      decoded(jpeg.substr(0, 2) + "\xFF\xE1" +
              numberBytes(static_cast<std::uint32_t>(note.size() + 2), 2) + note + jpeg.substr(2));
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->naturalSize(), (kvl::Size{16, 32}));
  const auto bitmap = image->rasterised(1);
  EXPECT_GT(pixelAt(bitmap, 8, 4)[0], 200);
  EXPECT_GT(pixelAt(bitmap, 8, 28)[2], 200);
}

// An animation whose canvas is larger than its only picture.
std::string placedWebP(std::uint32_t width, std::uint32_t height, std::uint32_t x,
                       std::uint32_t y) {
  const auto low = [](std::uint32_t number, std::size_t length) {
    return numberBytes(number, length, ByteOrder::kLittle);
  };
  const auto chunk = [&low](const std::string& name, const std::string& content) {
    return name + low(static_cast<std::uint32_t>(content.size()), 4) + content +
           std::string(content.size() % 2, '\0');
  };
  const std::string picture(kvltest::madeWebP().text().substr(12));
  const auto content =
      "WEBP" + chunk("VP8X", low(0x12, 4) + low(width - 1, 3) + low(height - 1, 3)) +
      chunk("ANIM", low(0, 6)) +
      chunk("ANMF",
            low(x / 2, 3) + low(y / 2, 3) + low(31, 3) + low(15, 3) + low(100, 4) + picture);
  return "RIFF" + low(static_cast<std::uint32_t>(content.size()), 4) + content;
}

TEST(ImageDecodingTest, TheFirstPictureOfAnAnimatedWebPStandsAtItsPlace) {
  const auto image = decoded(placedWebP(64, 48, 20, 10));
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->naturalSize(), (kvl::Size{64, 48}));
  const auto bitmap = image->rasterised(1);
  EXPECT_EQ(pixelAt(bitmap, 19, 18), (Pixel{0, 0, 0, 0}));
  EXPECT_EQ(pixelAt(bitmap, 20, 9), (Pixel{0, 0, 0, 0}));
  EXPECT_EQ(pixelAt(bitmap, 20, 10), (Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(bitmap, 51, 25), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(bitmap, 52, 25), (Pixel{0, 0, 0, 0}));
  EXPECT_EQ(pixelAt(bitmap, 51, 26), (Pixel{0, 0, 0, 0}));
}

TEST(ImageDecodingTest, CanvasesOfWebPUpToTheLimitAreDecoded) {
  EXPECT_NE(decoded(placedWebP(65'535, 16, 0, 0)), nullptr);
  EXPECT_EQ(decoded(placedWebP(65'536, 16, 0, 0)), nullptr);
  EXPECT_EQ(decoded(placedWebP(32, 65'536, 0, 0)), nullptr);
}

TEST(ImageDecodingTest, DrawingsHaveSidesUpToTheLimit) {
  const auto svg = [](const std::string& width, const std::string& height) {
    return kvl::Image::imageWithData(
        kvltest::writtenSVG("width='" + width + "' height='" + height + "'", ""));
  };
  const auto pdf = [](const std::string& width, const std::string& height) {
    return kvl::Image::imageWithData(kvltest::writtenPDF("0 0 " + width + " " + height, ""));
  };
  for (const char* side : {"1", "65535"}) {
    EXPECT_NE(svg(side, "1"), nullptr) << side;
    EXPECT_NE(svg("1", side), nullptr) << side;
    EXPECT_NE(pdf(side, "1"), nullptr) << side;
    EXPECT_NE(pdf("1", side), nullptr) << side;
  }
  EXPECT_EQ(svg("65535.5", "1"), nullptr);
  EXPECT_EQ(svg("1", "65535.5"), nullptr);
  EXPECT_EQ(svg("0", "1"), nullptr);
  EXPECT_EQ(svg("1", "0"), nullptr);
  EXPECT_EQ(pdf("65535.5", "1"), nullptr);
  EXPECT_EQ(pdf("1", "65535.5"), nullptr);
}

TEST(ImageDecodingTest, ABitmapHasWholePixelsAtLeastOneAndNotTooMany) {
  const auto image = kvl::Image::imageWithData(kvltest::madeSVG());
  ASSERT_NE(image, nullptr);
  const std::pair<kvl::Size, kvltest::Sides> cases[] = {
      {{0.2, 0.2}, {1, 1}},         {{0.4, 10}, {1, 10}},        {{10.5, 10.4}, {11, 10}},
      {{1e6, 0.01}, {16384, 1}},    {{0.01, 1e6}, {1, 16384}},   {{16384, 64}, {16384, 64}},
      {{8192, 4096}, {8192, 4096}}, {{8193, 4096}, {8192, 4095}}};
  for (const auto& [size, pixels] : cases) {
    image->setSize(size);
    const auto bitmap = image->rasterised(1);
    EXPECT_EQ(bitmap.width, pixels.width) << size.width << " x " << size.height;
    EXPECT_EQ(bitmap.height, pixels.height) << size.width << " x " << size.height;
    EXPECT_EQ(bitmap.pixels.size(), std::size_t{pixels.width} * pixels.height * 4);
  }
}

}  // namespace
