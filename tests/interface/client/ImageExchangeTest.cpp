#include "tests/interface/client/FalseDecoding.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

using kvl::interface::PixelSize;
using kvltest::falseOptions;
using kvltest::sourceOf;

constexpr kvl::Size kHonestSize{16, 8};

TEST(ImageExchangeTest, SizeAndPixelsAreThoseOfTheDecoder) {
  kvltest::ImageDecoding decoding(falseOptions());
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding.open(source), kHonestSize);
  for (const PixelSize size : {PixelSize{3, 2}, PixelSize{64, 64}, PixelSize{65, 64}, {800, 600}}) {
    const auto bitmap = decoding.draw(source, size);
    EXPECT_EQ(bitmap.width, size.width);
    EXPECT_EQ(bitmap.height, size.height);
    ASSERT_EQ(bitmap.pixels.size(), byteCountOf(size));
    EXPECT_EQ(bitmap.pixels.data()[bitmap.pixels.size() - 2], 30);
  }
}

}  // namespace
