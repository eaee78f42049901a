#include "platform/interface/pictures/Pixels.h"
#include "tests/interface/MadeImages.h"
#include "tests/interface/pictures/DrawnPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>

namespace {

using kvltest::drawn;
using kvltest::expectRedAndBlue;
using kvltest::MadeImage;
using kvltest::pictureOf;
using kvltest::pixelAt;

class PictureFormatTest : public testing::TestWithParam<MadeImage> {
 protected:
  [[nodiscard]] static std::string_view bytes() { return GetParam().data.text(); }
};

INSTANTIATE_TEST_SUITE_P(All, PictureFormatTest, testing::ValuesIn(kvltest::madeImages()),
                         [](const auto& made) { return made.param.name; });

TEST_P(PictureFormatTest, DecodesToItsSizeAndColors) {
  const auto picture = pictureOf(bytes());
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->size(), (kvl::Size{32, 16}));
  EXPECT_GT(picture->cost(), 0U);
  EXPECT_LT(picture->cost(), 1U << 20);
  expectRedAndBlue(drawn(picture, 32, 16), "as large as it is");
  EXPECT_FALSE(kvl::pictures::lacksMemory());
}

TEST_P(PictureFormatTest, IsDrawnAtAnySizeAnyNumberOfTimes) {
  const auto picture = pictureOf(bytes());
  ASSERT_NE(picture, nullptr);
  for (const auto& [width, height] :
       {std::pair(15U, 30U), {64U, 32U}, {8U, 1U}, {300U, 200U}, {32U, 16U}}) {
    expectRedAndBlue(drawn(picture, width, height),
                     std::to_string(width) + " x " + std::to_string(height));
  }
}

TEST_P(PictureFormatTest, HasNoOtherSizeWhereverItIsCutOff) {
  const auto step = std::max<std::size_t>(bytes().size() / 40, 1);
  for (std::size_t size = 0; size < bytes().size(); size += step) {
    // A copy of just that length, so that reading further is seen.
    const std::string cut(bytes().substr(0, size));
    const auto picture = pictureOf(cut);
    if (!picture) continue;
    EXPECT_EQ(picture->size(), (kvl::Size{32, 16})) << size;
    static_cast<void>(drawn(picture, 32, 16));
    if (size < 40) ADD_FAILURE() << "no picture is as short as " << size;
  }
}

TEST_P(PictureFormatTest, SurvivesChangedBytes) {
  std::mt19937 random(2);
  for (int round = 0; round < 40; ++round) {
    std::string changed(bytes());
    for (int i = 0; i < 3; ++i) changed[random() % changed.size()] = static_cast<char>(random());
    const auto picture = pictureOf(changed);
    if (!picture) continue;
    EXPECT_TRUE(picture->size().width > 0 && picture->size().height > 0);
    static_cast<void>(drawn(picture, 16, 16));
  }
}

TEST(PictureTest, GarbageIsNoPicture) {
  for (const std::string_view text :
       {"", "x", "<", "<html></html>", "%PDF-1.4", "RIFFxxxxWEBP", "GIF89a", "BM", "\x1F\x8B\x08",
        "\xFF\xD8\xFF", "%PDF-%%EOF", "<svg>"}) {
    EXPECT_EQ(pictureOf(text), nullptr) << text;
  }
}

TEST(PictureTest, BytesAreOfTheFormatThatIsStated) {
  const auto png = kvltest::madePixbuf("png", 4, 4);
  using kvl::interface::ImageFormat;
  for (const auto format : {ImageFormat::kUnknown, ImageFormat::kJPEG, ImageFormat::kGIF,
                            ImageFormat::kTIFF, ImageFormat::kWebP, ImageFormat::kBMP,
                            ImageFormat::kICO, ImageFormat::kSVG, ImageFormat::kPDF}) {
    EXPECT_EQ(kvl::pictures::decode(format, png.bytes()), nullptr) << nameOf(format);
  }
}

TEST(PictureTest, DrawingsAreSharpAtAnySize) {
  for (const auto& data : {kvltest::madeSVG(), kvltest::madePDF()}) {
    const auto bitmap = drawn(data.text(), 64, 32);
    ASSERT_FALSE(bitmap.empty());
    EXPECT_EQ(pixelAt(bitmap, 31, 16), (kvltest::Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixelAt(bitmap, 32, 16), (kvltest::Pixel{0, 0, 255, 255}));
  }
}

TEST(PictureTest, DrawingsHaveATransparentBackgroundAndPremultipliedColors) {
  const auto svg =
      drawn(kvltest::writtenSVG("width='20' height='10'",
                                "<rect width='10' height='10' fill='#f80' fill-opacity='.5'/>")
                .text(),
            20, 10);
  ASSERT_FALSE(svg.empty());
  const auto pixel = pixelAt(svg, 5, 5);
  EXPECT_NEAR(pixel[0], 128, 1);
  EXPECT_NEAR(pixel[1], 68, 1);
  EXPECT_EQ(pixel[2], 0);
  EXPECT_NEAR(pixel[3], 128, 1);
  EXPECT_EQ(pixelAt(svg, 15, 5), (kvltest::Pixel{0, 0, 0, 0}));
  const auto pdf = drawn(kvltest::writtenPDF("0 0 20 10", "").text(), 20, 10);
  ASSERT_FALSE(pdf.empty());
  EXPECT_EQ(pixelAt(pdf, 10, 5), (kvltest::Pixel{0, 0, 0, 0}));
}

// More than a surface of cairo may have.
TEST(PictureTest, ADrawingThatFailsIsTold) {
  EXPECT_TRUE(drawn(kvltest::madeSVG().text(), 40'000, 1).empty());
  EXPECT_TRUE(drawn(kvltest::madePDF().text(), 1, 40'000).empty());
  EXPECT_FALSE(drawn(kvltest::madeSVG().text(), 30'000, 1).empty());
  std::array<std::uint8_t, 4> pixel{};
  const auto fails = [](cairo_t*) { return false; };
  EXPECT_FALSE(kvl::pictures::drawByCairo({pixel, 1, 1}, {1, 1}, fails));
}

TEST(PictureTest, DrawingsSayHowLargeTheyAreBeyondTheLimits) {
  for (const auto& data : {kvltest::writtenSVG("width='65536' height='1'", ""),
                           kvltest::writtenPDF("0 0 65536 1", "")}) {
    const auto picture = pictureOf(data.text());
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->size(), (kvl::Size{65'536, 1}));
  }
}

TEST(PictureTest, APDFIsAsLargeAsItsFirstPagesCropBox) {
  const auto picture =
      pictureOf(kvltest::writtenPDF("0 0 200 100]/CropBox[100 0 132 16",
                                    "1 0 0 rg 100 0 16 16 re f "
                                    "0 0 1 rg 116 0 16 16 re f 0 1 0 rg 0 0 100 100 re f")
                    .text());
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->size(), (kvl::Size{32, 16}));
}

TEST(PictureTest, OnlyTheCropBoxOfAPDFIsDrawn) {
  const auto pdf = kvltest::writtenPDF("0 0 200 100]/CropBox[100 0 132 16",
                                       "1 0 0 rg 100 0 16 16 re f "
                                       "0 0 1 rg 116 0 16 16 re f 0 1 0 rg 0 0 100 100 re f");
  expectRedAndBlue(drawn(pdf.text(), 32, 16), "cropped");
}

}  // namespace
