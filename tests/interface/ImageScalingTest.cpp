#include "tests/interface/MadeImages.h"

#include <local/KVLExtensionsImage.h>

#include <gtest/gtest.h>

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

}  // namespace
