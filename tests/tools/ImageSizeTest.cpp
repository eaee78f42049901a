#include "tools/kvlocal/Arguments.h"

#include <gtest/gtest.h>

namespace {

TEST(ImageSizeTest, IsTwoNumbersAbove0) {
  EXPECT_EQ(kvlocal::sizeOf("16x32"), (kvl::Size{16, 32}));
  EXPECT_EQ(kvlocal::sizeOf("0.5x100000"), (kvl::Size{0.5, 100000}));
  EXPECT_EQ(kvlocal::sizeFault("1x1"), "");
  EXPECT_EQ(kvlocal::sizeOf(""), kvl::Size{});
}

TEST(ImageSizeTest, AnythingElseIsAFault) {
  for (const auto* text : {"", "x", "16", "16x", "x16", "0x16", "16x0", "-1x1", "1x1x1", "1 x 1",
                           "nanx1", "infx1", "1x1e9", "16X16"})
    EXPECT_NE(kvlocal::sizeFault(text), "") << text;
}

TEST(ImageSizeTest, IsShownWithoutNeedlessDigits) {
  EXPECT_EQ(kvlocal::sizeText({16, 0.5}), "16 x 0.5");
}

}  // namespace
