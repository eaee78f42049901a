#include "tests/interface/MadeImages.h"

#include <local/platform/Image.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

namespace {

using kvltest::MadeImage;
using kvltest::pixelAt;

void expectNear(const kvltest::Pixel& pixel, const kvltest::Pixel& expected) {
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(pixel.at(i), expected.at(i), 6);
}

// What all of these images show.
void expectPicture(const kvl::Image& image) {
  EXPECT_EQ(image.naturalSize(), (kvl::Size{32, 16}));
  const auto bitmap = image.rasterised(1);
  ASSERT_EQ(bitmap.width, 32U);
  ASSERT_EQ(bitmap.height, 16U);
  ASSERT_EQ(bitmap.pixels.size(), bitmap.height * bitmap.stride());
  expectNear(pixelAt(bitmap, 4, 8), {255, 0, 0, 255});
  expectNear(pixelAt(bitmap, 28, 8), {0, 0, 255, 255});
}

class ImageFormatTest : public testing::TestWithParam<MadeImage> {};

INSTANTIATE_TEST_SUITE_P(All, ImageFormatTest, testing::ValuesIn(kvltest::madeImages()),
                         [](const auto& made) { return made.param.name; });

TEST_P(ImageFormatTest, DecodesToTheRightSizeAndColors) {
  const auto image = kvl::Image::imageWithData(GetParam().data);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->data().data(), GetParam().data.data());
  expectPicture(*image);
}

// The libraries show what there is of some files that end too early.
TEST_P(ImageFormatTest, IsOfItsSizeOrNoneWhereverItIsCutOff) {
  const auto& data = GetParam().data;
  const auto step = std::max<std::size_t>(data.size() / 60, 1);
  for (std::size_t size = 0; size < data.size(); size += size + 40 < data.size() ? step : 1) {
    const auto image = kvl::Image::imageWithData(data.slice(0, size));
    if (image) EXPECT_EQ(image->naturalSize(), (kvl::Size{32, 16})) << size;
    if (size < 12) EXPECT_EQ(image, nullptr) << size;
  }
}

TEST_P(ImageFormatTest, SurvivesChangedBytes) {
  std::mt19937 random(1);
  for (int round = 0; round < 60; ++round) {
    kvl::Bytes bytes(GetParam().data.bytes().begin(), GetParam().data.bytes().end());
    for (int i = 0; i < 3; ++i)
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    const auto image = kvl::Image::imageWithData(kvl::Data(std::move(bytes)));
    if (!image) continue;
    image->setSize({32, 16});
    EXPECT_LE(image->rasterised(2).pixels.size(), kvl::kMaximumBitmapPixels * 4);
  }
}

TEST_P(ImageFormatTest, IsDrawnAtItsSizeTimesTheScale) {
  const auto image = kvl::Image::imageWithData(GetParam().data);
  ASSERT_NE(image, nullptr);
  image->setSize({10, 20});
  const auto bitmap = image->rasterised(1.5);
  ASSERT_EQ(bitmap.width, 15U);
  ASSERT_EQ(bitmap.height, 30U);
  expectNear(pixelAt(bitmap, 1, 15), {255, 0, 0, 255});
  expectNear(pixelAt(bitmap, 13, 15), {0, 0, 255, 255});
}

TEST_P(ImageFormatTest, EndsWithoutABitmapForNoSizeOrScale) {
  const auto image = kvl::Image::imageWithData(GetParam().data);
  ASSERT_NE(image, nullptr);
  for (const double scale : {0.0, -1.0, std::nan(""), HUGE_VAL}) {
    EXPECT_TRUE(image->rasterised(scale).empty()) << scale;
  }
  image->setSize({0, 10});
  EXPECT_TRUE(image->rasterised(1).empty());
}

TEST_P(ImageFormatTest, ComesWithFewerPixelsThanWouldBeTooMany) {
  const auto image = kvl::Image::imageWithData(GetParam().data);
  ASSERT_NE(image, nullptr);
  const auto bitmap = image->rasterised(100'000);
  EXPECT_LE(std::uint64_t{bitmap.width} * bitmap.height, kvl::kMaximumBitmapPixels);
  EXPECT_NEAR(bitmap.width, 8192, 2);
  EXPECT_NEAR(bitmap.height, 4096, 2);
}

TEST(ImageSharpnessTest, DrawingsAreDrawnAnewAtTwiceTheScale) {
  for (const auto& data : {kvltest::madeSVG(), kvltest::madePDF()}) {
    const auto image = kvl::Image::imageWithData(data);
    ASSERT_NE(image, nullptr);
    const auto bitmap = image->rasterised(2);
    EXPECT_EQ(pixelAt(bitmap, 31, 16), (kvltest::Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixelAt(bitmap, 32, 16), (kvltest::Pixel{0, 0, 255, 255}));
  }
}

TEST(ImageSharpnessTest, BackgroundIsTransparentAndColorsArePremultiplied) {
  const auto svg = kvl::Image::imageWithData(kvltest::writtenSVG(
      "width='20' height='10'", "<rect width='10' height='10' fill='red' fill-opacity='.5'/>"));
  const auto pdf = kvl::Image::imageWithData(kvltest::writtenPDF("0 0 20 10", ""));
  ASSERT_TRUE(svg && pdf);
  const auto pixel = pixelAt(svg->rasterised(1), 5, 5);
  EXPECT_NEAR(pixel[3], 128, 1);
  EXPECT_EQ(pixel[0], pixel[3]);
  EXPECT_EQ(pixelAt(svg->rasterised(1), 15, 5), (kvltest::Pixel{0, 0, 0, 0}));
  EXPECT_EQ(pixelAt(pdf->rasterised(1), 10, 5), (kvltest::Pixel{0, 0, 0, 0}));
}

TEST(ImageSizeTest, DrawingsStateTheirSizeInSeveralWays) {
  const std::pair<const char*, kvl::Size> cases[] = {
      {"viewBox='5 5 64 32'", {64, 32}}, {"width='1in' height='72pt'", {96, 96}}, {"", {300, 150}}};
  for (const auto& [attributes, size] : cases) {
    const auto image = kvl::Image::imageWithData(kvltest::writtenSVG(attributes, ""));
    ASSERT_NE(image, nullptr) << attributes;
    EXPECT_NEAR(image->naturalSize().width, size.width, 1e-6) << attributes;
    EXPECT_NEAR(image->naturalSize().height, size.height, 1e-6) << attributes;
  }
}

TEST(ImagePropertyTest, SizeIsTheNaturalOneUntilSet) {
  const auto image = kvl::Image::imageWithData(kvltest::madeSVG());
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->size(), image->naturalSize());
  image->setSize({3, 4});
  EXPECT_EQ(image->size(), (kvl::Size{3, 4}));
  EXPECT_EQ(image->naturalSize(), (kvl::Size{32, 16}));
}

TEST(ImagePropertyTest, IsNoTemplateUntilMadeOne) {
  const auto image = kvl::Image::imageWithData(kvltest::madeSVG());
  ASSERT_NE(image, nullptr);
  EXPECT_FALSE(image->isTemplate());
  image->setTemplate(true);
  EXPECT_TRUE(image->isTemplate());
}

TEST(ImageThreadTest, EightThreadsDecodeAndDrawAllFormats) {
  const auto images = kvltest::madeImages();
  const auto shared = kvl::Image::imageWithData(kvltest::madeSVG());
  ASSERT_NE(shared, nullptr);
  std::vector<std::jthread> threads;
  for (std::size_t thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&images, &shared, thread] {
      for (std::size_t round = 0; round < 14; ++round) {
        const auto image =
            kvl::Image::imageWithData(images.at((round + thread) % images.size()).data);
        ASSERT_NE(image, nullptr);
        expectPicture(*image);
        shared->setTemplate(round % 2 == 0);
        shared->setSize({16, 8});
        EXPECT_FALSE(shared->rasterised(1).empty());
      }
    });
  }
}

}  // namespace
