#include "tests/interface/MadeImages.h"

#include <local/KVLExtensionsImage.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

kvl::Size scaled(kvl::Size from, kvl::Size target) {
  const auto image = kvl::Image::imageWithData(kvltest::madeSVG());
  if (!image) return {};
  image->setSize(from);
  KVLExtensions::scaleImage(*image, target);
  return image->size();
}

void expectSize(kvl::Size size, kvl::Size expected) {
  EXPECT_DOUBLE_EQ(size.width, expected.width);
  EXPECT_DOUBLE_EQ(size.height, expected.height);
}

TEST(ImageScalingTest, FitsTheSquareOfTheSmallerSide) {
  expectSize(scaled({200, 100}, {32, 64}), {32, 16});
  expectSize(scaled({100, 200}, {32, 64}), {16, 32});
  expectSize(scaled({100, 200}, {64, 32}), {16, 32});
}

TEST(ImageScalingTest, EnlargesSmallerImages) {
  expectSize(scaled({10, 10}, {20, 20}), {20, 20});
}

TEST(ImageScalingTest, StartsFromThePresentSize) {
  const auto image = kvl::Image::imageWithData(kvltest::madeSVG());
  ASSERT_NE(image, nullptr);
  image->setSize({10, 40});
  KVLExtensions::scaleImage(*image, {20, 20});
  expectSize(image->size(), {5, 20});
  EXPECT_EQ(image->naturalSize(), (kvl::Size{32, 16}));
}

TEST(ImageScalingTest, SizesThatAreNoNumbersDrawNothing) {
  constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
  const auto image = kvl::Image::imageWithData(kvltest::madeSVG());
  ASSERT_NE(image, nullptr);
  KVLExtensions::scaleImage(*image, {kNoNumber, kNoNumber});
  EXPECT_TRUE(std::isnan(image->size().width) && std::isnan(image->size().height));
  EXPECT_TRUE(image->rasterised(1).empty());
  KVLExtensions::scaleImage(*image, {20, 20});
  EXPECT_TRUE(image->rasterised(1).empty());
  image->setSize({10, kNoNumber});
  EXPECT_TRUE(image->rasterised(1).empty());
  image->setSize({10, 10});
  EXPECT_TRUE(image->rasterised(kNoNumber).empty());
  EXPECT_FALSE(image->rasterised(1).empty());
}

}  // namespace
