#include "tests/interface/pictures/DrawnPicture.h"

#include "tests/interface/MadeImages.h"

#include <gtest/gtest.h>

#include <utility>

namespace kvltest {

std::unique_ptr<kvl::pictures::Picture> pictureOf(std::string_view bytes) {
  const kvl::interface::Span span(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                  bytes.size());
  return kvl::pictures::decode(kvl::interface::imageFormatOf(span), span);
}

kvl::Bitmap drawn(const std::unique_ptr<kvl::pictures::Picture>& picture, std::uint32_t width,
                  std::uint32_t height) {
  kvl::Bytes pixels(std::size_t{4} * width * height);
  if (!picture || !picture->draw({pixels, width, height})) return {};
  return {width, height, kvl::Data(std::move(pixels))};
}

kvl::Bitmap drawn(std::string_view bytes, std::uint32_t width, std::uint32_t height) {
  return drawn(pictureOf(bytes), width, height);
}

void expectRedAndBlue(const kvl::Bitmap& bitmap, const std::string& what) {
  ASSERT_FALSE(bitmap.empty()) << what;
  const auto left = pixelAt(bitmap, bitmap.width / 8, bitmap.height / 2);
  const auto right = pixelAt(bitmap, bitmap.width - 1 - bitmap.width / 8, bitmap.height / 2);
  const Pixel red{255, 0, 0, 255};
  const Pixel blue{0, 0, 255, 255};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(left.at(i), red.at(i), 6) << what;
    EXPECT_NEAR(right.at(i), blue.at(i), 6) << what;
  }
}

}  // namespace kvltest
