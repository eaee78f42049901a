// Photographs with many more pixels than are shown.
#include "tests/interface/MadeImages.h"
#include "tests/interface/pictures/DrawnPicture.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/Sanitized.h"

#include <gtest/gtest.h>
#include <webp/encode.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>
// Wants the two above it.
#include <jpeglib.h>

namespace {

using kvltest::expectRedAndBlue;
using kvltest::pictureOf;
using kvltest::pixelAt;

constexpr std::uint32_t kWidth = 8'660;
constexpr std::uint32_t kHeight = 5'774;
constexpr std::int64_t kMostMemory = std::int64_t{256} << 20;
constexpr double kMostSeconds = 2;

std::vector<std::uint8_t> rowOf(std::uint32_t width) {
  std::vector<std::uint8_t> row(std::size_t{3} * width);
  for (std::size_t x = 0; x < width; ++x) row[3 * x + (x < width / 2 ? 0 : 2)] = 255;
  return row;
}

// The same in each row.
std::string madeJPEG(std::uint32_t width, std::uint32_t height, bool progressive) {
  jpeg_compress_struct encoder{};
  jpeg_error_mgr errors{};
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&encoder, &bytes, &size);
  encoder.image_width = width;
  encoder.image_height = height;
  encoder.input_components = 3;
  encoder.in_color_space = JCS_RGB;
  jpeg_set_defaults(&encoder);
  if (progressive) jpeg_simple_progression(&encoder);
  jpeg_start_compress(&encoder, TRUE);
  auto row = rowOf(width);
  for (auto* start = row.data(); encoder.next_scanline < height;) {
    jpeg_write_scanlines(&encoder, &start, 1);
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  std::string jpeg(reinterpret_cast<char*>(bytes), size);
  std::free(bytes);
  return jpeg;
}

// Lossy.
std::string madeWebP(int width, int height) {
  WebPConfig config;
  WebPPicture picture;
  WebPMemoryWriter writer;
  WebPConfigPreset(&config, WEBP_PRESET_ICON, 50);
  config.method = 0;
  WebPPictureInit(&picture);
  WebPMemoryWriterInit(&writer);
  picture.width = width;
  picture.height = height;
  WebPPictureAlloc(&picture);
  for (int y = 0; y < height; ++y) {
    for (int part = 0; part < 2; ++part) {
      // Red and blue, as BT.601 has them.
      const int half = width / 2;
      const auto start = part * half;
      std::fill_n(picture.y + y * picture.y_stride + start, half, part == 0 ? 82 : 41);
      if (y % 2 != 0) continue;
      const auto place = y / 2 * picture.uv_stride + start / 2;
      std::fill_n(picture.u + place, half / 2, part == 0 ? 90 : 240);
      std::fill_n(picture.v + place, half / 2, part == 0 ? 240 : 110);
    }
  }
  picture.writer = WebPMemoryWrite;
  picture.custom_ptr = &writer;
  EXPECT_NE(WebPEncode(&config, &picture), 0);
  std::string webp(reinterpret_cast<char*>(writer.mem), writer.size);
  WebPPictureFree(&picture);
  WebPMemoryWriterClear(&writer);
  return webp;
}

double processorTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void expectSmallDrawing(const std::string& photo) {
  const bool counts = kvltest::forgetPeakMemory();
  const auto before = kvltest::peakMemory();
  const auto start = processorTime();
  const auto picture = pictureOf(photo);
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->size(), (kvl::Size{kWidth, kHeight}));
  expectRedAndBlue(kvltest::drawn(picture, 32, 21), "photograph");
  if (kvltest::kSanitized) return;
  EXPECT_LT(processorTime() - start, kMostSeconds);
  if (counts) EXPECT_LT(kvltest::peakMemory() - before, kMostMemory);
  EXPECT_LE(picture->cost(), std::size_t{4} << 20);
}

TEST(PictureScalingTest, APhotographOf50MegapixelsIsDrawnAt32Points) {
  expectSmallDrawing(madeJPEG(kWidth, kHeight, false));
}

TEST(PictureScalingTest, SoIsOneThatIsStoredInPasses) {
  expectSmallDrawing(madeJPEG(kWidth, kHeight, true));
}

TEST(PictureScalingTest, SoIsAWebP) {
  expectSmallDrawing(madeWebP(kWidth, kHeight));
}

// Otherwise it would take as much as the whole of it.
TEST(PictureScalingTest, AJPEGIsReadAtTheSizeAtWhichItIsDrawn) {
  const auto photo = madeJPEG(kWidth, kHeight, false);
  const auto picture = pictureOf(photo);
  ASSERT_NE(picture, nullptr);
  const bool counts = kvltest::forgetPeakMemory();
  const auto before = kvltest::peakMemory();
  const auto bitmap = kvltest::drawn(picture, 2'000, 1'334);
  expectRedAndBlue(bitmap, "a quarter");
  EXPECT_GT(pixelAt(bitmap, 997, 600)[0], 240);
  EXPECT_GT(pixelAt(bitmap, 1'003, 600)[2], 240);
  if (counts && !kvltest::kSanitized) EXPECT_LT(kvltest::peakMemory() - before, 40 << 20);
}

TEST(PictureScalingTest, APictureAsLargeAsAScreenIsWhole) {
  constexpr std::uint32_t width = 7'680;
  constexpr std::uint32_t height = 4'320;
  const auto bitmap = kvltest::drawn(madeJPEG(width, height, false), width, height);
  ASSERT_FALSE(bitmap.empty());
  for (const std::uint32_t y : {0U, 2'000U, height - 1}) {
    EXPECT_GT(pixelAt(bitmap, 3'836, y)[0], 240);
    EXPECT_GT(pixelAt(bitmap, 3'843, y)[2], 240);
  }
}

}  // namespace
