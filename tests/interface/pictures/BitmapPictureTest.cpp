#include "tests/interface/MadeImages.h"
#include "tests/interface/pictures/DrawnPicture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using kvltest::drawn;
using kvltest::expectRedAndBlue;
using kvltest::pictureOf;
using kvltest::Pixel;
using kvltest::pixelAt;

constexpr Pixel kNothing{0, 0, 0, 0};

std::string number(std::uint64_t value, std::size_t length) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) bytes += static_cast<char>(value >> 8 * i);
  return bytes;
}

TEST(BitmapPictureTest, APictureMayBeOnePixelWideOrHigh) {
  for (const char* format : {"png", "jpeg", "tiff", "bmp", "ico"}) {
    for (const auto& [width, height] : {std::pair(1, 1), std::pair(1, 16), std::pair(16, 1)}) {
      const auto data = kvltest::madePixbuf(format, width, height);
      const auto picture = pictureOf(data.text());
      ASSERT_NE(picture, nullptr) << format << " " << width << " x " << height;
      EXPECT_EQ(picture->size(), (kvl::Size{double(width), double(height)})) << format;
      EXPECT_FALSE(drawn(picture, 9, 9).empty()) << format;
    }
  }
}

std::string pngOf(std::uint32_t color) {
  GdkPixbuf* const pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 3, 2);
  gdk_pixbuf_fill(pixbuf, color);
  char* bytes = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(pixbuf, &bytes, &size, "png", nullptr, nullptr);
  g_object_unref(pixbuf);
  std::string png(bytes, size);
  g_free(bytes);
  return png;
}

TEST(BitmapPictureTest, ColorsAreMultipliedByTheAlpha) {
  const std::pair<std::uint32_t, Pixel> cases[] = {
      {0xFF804080, {128, 64, 32, 128}},  {0xFF804000, {0, 0, 0, 0}},
      {0xFF8040FF, {255, 128, 64, 255}}, {0xFFFFFF01, {1, 1, 1, 1}},
      {0x01FF7FFE, {1, 254, 127, 254}},  {0x80808080, {64, 64, 64, 128}}};
  for (const auto& [color, expected] : cases) {
    const auto bitmap = drawn(pngOf(color), 3, 2);
    ASSERT_FALSE(bitmap.empty());
    EXPECT_EQ(pixelAt(bitmap, 0, 0), expected) << std::hex << color;
    EXPECT_EQ(pixelAt(bitmap, 2, 1), expected) << std::hex << color;
  }
}

TEST(BitmapPictureTest, WhatIsTransparentLendsNoColorWhenItIsScaled) {
  GdkPixbuf* const pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 2, 1);
  gdk_pixbuf_fill(pixbuf, 0x00FF0000);
  gdk_pixbuf_get_pixels(pixbuf)[4] = 255;
  gdk_pixbuf_get_pixels(pixbuf)[5] = 0;
  gdk_pixbuf_get_pixels(pixbuf)[7] = 255;
  char* bytes = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(pixbuf, &bytes, &size, "png", nullptr, nullptr);
  g_object_unref(pixbuf);
  const auto pixel = pixelAt(drawn(std::string_view(bytes, size), 1, 1), 0, 0);
  g_free(bytes);
  EXPECT_NEAR(pixel[0], 128, 2);
  EXPECT_EQ(pixel[1], 0);
  EXPECT_NEAR(pixel[3], 128, 2);
}

// The JPEG with a camera's note of how it was held.
std::string noted(std::string_view jpeg, char orientation) {
  const auto note = std::string("Exif\0\0II*\0\x08\0\0\0\x01\0", 16) +
                    std::string("\x12\x01\x03\0\x01\0\0\0", 8) + orientation +
                    std::string("\0\0\0\0\0\0\0", 7);
  const auto length = static_cast<char>(note.size() + 2);
  return std::string(jpeg.substr(0, 2)) + std::string("\xFF\xE1\0", 3) + length + note +
         std::string(jpeg.substr(2));
}

bool isRedAt(const kvl::Bitmap& bitmap, std::uint32_t x, std::uint32_t y) {
  const auto pixel = pixelAt(bitmap, x, y);
  return pixel[0] > 200 && pixel[2] < 60;
}

TEST(BitmapPictureTest, APhotographIsTurnedAsItsFileSays) {
  const auto jpeg = kvltest::madePixbuf("jpeg", 32, 16);
  for (char orientation = 1; orientation <= 8; ++orientation) {
    const auto photo = noted(jpeg.text(), orientation);
    const auto picture = pictureOf(photo);
    ASSERT_NE(picture, nullptr);
    const bool isUpright = orientation <= 4;
    EXPECT_EQ(picture->size(), isUpright ? (kvl::Size{32, 16}) : (kvl::Size{16, 32}));
    const auto bitmap = isUpright ? drawn(picture, 32, 16) : drawn(picture, 16, 32);
    // Left, or on top of one that is turned by a quarter.
    const bool startsRed =
        orientation == 1 || orientation == 4 || orientation == 5 || orientation == 6;
    EXPECT_EQ(isRedAt(bitmap, 4, 4), startsRed) << int{orientation};
    EXPECT_EQ(isUpright ? isRedAt(bitmap, 28, 12) : isRedAt(bitmap, 12, 28), !startsRed)
        << int{orientation};
  }
}

TEST(BitmapPictureTest, ALargePhotographIsTurnedEachTimeItIsRead) {
  const auto jpeg = kvltest::madePixbuf("jpeg", 2048, 1024);
  const auto photo = noted(jpeg.text(), 6);
  const auto picture = pictureOf(photo);
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->size(), (kvl::Size{1024, 2048}));
  for (const auto& [width, height] : {std::pair(32U, 64U), {1024U, 2048U}, {100U, 2000U}}) {
    const auto bitmap = drawn(picture, width, height);
    ASSERT_FALSE(bitmap.empty());
    EXPECT_TRUE(isRedAt(bitmap, width / 2, height / 8)) << width;
    EXPECT_FALSE(isRedAt(bitmap, width / 2, height - height / 8)) << width;
  }
}

// What is drawn as high as it is has to be read as wide.
TEST(BitmapPictureTest, ALargePhotographThatIsTurnedIsSharp) {
  const auto jpeg = kvltest::madePixbuf("jpeg", 1024, 8192);
  const auto photo = noted(jpeg.text(), 6);
  const auto bitmap = drawn(photo, 100, 1024);
  ASSERT_FALSE(bitmap.empty());
  EXPECT_GT(pixelAt(bitmap, 50, 509)[0], 240);
  EXPECT_GT(pixelAt(bitmap, 50, 514)[2], 240);
}

TEST(BitmapPictureTest, ALargePictureIsKeptSmallAndDrawnSharp) {
  for (const char* format : {"png", "jpeg", "tiff", "bmp"}) {
    const auto data = kvltest::madePixbuf(format, 4096, 512);
    const auto picture = pictureOf(data.text());
    ASSERT_NE(picture, nullptr) << format;
    EXPECT_EQ(picture->size(), (kvl::Size{4096, 512})) << format;
    EXPECT_LE(picture->cost(), 4U << 20) << format;
    expectRedAndBlue(drawn(picture, 32, 4), format);
    const auto whole = drawn(picture, 4096, 512);
    ASSERT_FALSE(whole.empty()) << format;
    for (const std::uint32_t x : {2040U, 2055U}) {
      const auto pixel = pixelAt(whole, x, 256);
      EXPECT_NEAR(pixel[0], x < 2048 ? 255 : 0, 6) << format;
      EXPECT_NEAR(pixel[2], x < 2048 ? 0 : 255, 6) << format;
    }
    EXPECT_LE(picture->cost(), 4U << 20) << format;
  }
}

// An animation whose canvas is larger than its only picture.
std::string placedWebP(std::uint32_t width, std::uint32_t height, std::uint32_t x,
                       std::uint32_t y) {
  const auto chunk = [](const std::string& name, const std::string& content) {
    return name + number(static_cast<std::uint32_t>(content.size()), 4) + content +
           std::string(content.size() % 2, '\0');
  };
  const std::string picture(kvltest::madeWebP().text().substr(12));
  const auto content =
      "WEBP" + chunk("VP8X", number(0x12, 4) + number(width - 1, 3) + number(height - 1, 3)) +
      chunk("ANIM", number(0, 6)) +
      chunk("ANMF", number(x / 2, 3) + number(y / 2, 3) + number(31, 3) + number(15, 3) +
                        number(100, 4) + picture);
  return "RIFF" + number(static_cast<std::uint32_t>(content.size()), 4) + content;
}

TEST(BitmapPictureTest, TheFirstPictureOfAnAnimatedWebPStandsAtItsPlace) {
  const auto bitmap = drawn(placedWebP(64, 48, 20, 10), 64, 48);
  ASSERT_FALSE(bitmap.empty());
  EXPECT_EQ(pixelAt(bitmap, 19, 18), kNothing);
  EXPECT_EQ(pixelAt(bitmap, 20, 9), kNothing);
  EXPECT_EQ(pixelAt(bitmap, 20, 10), (Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(bitmap, 51, 25), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(bitmap, 52, 25), kNothing);
  EXPECT_EQ(pixelAt(bitmap, 51, 26), kNothing);
}

// The canvas has twice as many pixels as are kept; the picture on it shrinks with it.
TEST(BitmapPictureTest, ItStandsThereAlsoWhenTheCanvasIsReadSmaller) {
  const auto webp = placedWebP(2048, 1024, 1024, 512);
  const auto picture = pictureOf(webp);
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->size(), (kvl::Size{2048, 1024}));
  const auto half = drawn(picture, 1024, 512);
  ASSERT_FALSE(half.empty());
  EXPECT_GT(pixelAt(half, 516, 260)[3], 200);
  EXPECT_GT(pixelAt(half, 516, 260)[0], 200);
  EXPECT_GT(pixelAt(half, 524, 260)[2], 200);
  EXPECT_EQ(pixelAt(half, 508, 260), kNothing);
  EXPECT_EQ(pixelAt(half, 532, 260), kNothing);
  const auto whole = drawn(picture, 2048, 1024);
  ASSERT_FALSE(whole.empty());
  EXPECT_EQ(pixelAt(whole, 1024, 512), (Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(whole, 1023, 512), kNothing);
  EXPECT_EQ(pixelAt(whole, 1055, 527), (Pixel{0, 0, 255, 255}));
}

TEST(BitmapPictureTest, AWebPThatEndsTooEarlyIsNoPicture) {
  const std::string webp(kvltest::madeWebP().text());
  EXPECT_EQ(pictureOf(webp.substr(0, webp.size() - 4)), nullptr);
}

// Of the others the library takes the beginning for the whole.
TEST(BitmapPictureTest, AGIFOrTIFFThatEndsTooEarlyIsNoPicture) {
  const auto gif = kvltest::madeGIF(1);
  const auto tiff = kvltest::madePixbuf("tiff", 200, 200);
  for (const std::string_view file : {gif.text(), tiff.text()}) {
    for (const std::size_t divisor : {2, 3, 5}) {
      EXPECT_EQ(pictureOf(std::string(file.substr(0, file.size() / divisor))), nullptr) << divisor;
    }
  }
}

TEST(BitmapPictureTest, SidesBeyondTheLimitAreToldAndNotDrawn) {
  for (const char* format : {"png", "tiff"}) {
    const auto within = kvltest::madePixbuf(format, 65'535, 1);
    EXPECT_FALSE(drawn(within.text(), 32, 1).empty()) << format;
    const auto beyond = kvltest::madePixbuf(format, 65'536, 1);
    const auto picture = pictureOf(beyond.text());
    ASSERT_NE(picture, nullptr) << format;
    EXPECT_EQ(picture->size(), (kvl::Size{65'536, 1})) << format;
    EXPECT_TRUE(drawn(picture, 32, 1).empty()) << format;
  }
}

TEST(BitmapPictureTest, AGIFShowsItsFirstPicture) {
  for (const int count : {1, 2, 5}) {
    const auto gif = kvltest::madeGIF(count);
    expectRedAndBlue(drawn(gif.text(), 32, 16), std::to_string(count));
  }
}

}  // namespace
