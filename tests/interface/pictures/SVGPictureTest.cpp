#include "tests/interface/ImageFolder.h"
#include "tests/interface/MadeImages.h"
#include "tests/interface/pictures/DrawnPicture.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using kvltest::drawn;
using kvltest::pictureOf;
using kvltest::Pixel;
using kvltest::pixelAt;
using kvltest::writtenSVG;

TEST(SVGPictureTest, TheSizeIsStatedInSeveralWays) {
  const std::pair<const char*, kvl::Size> cases[] = {
      {"viewBox='5 5 64 32'", {64, 32}},
      {"width='1in' height='72pt'", {96, 96}},
      {"width='2em' height='10'", {24, 10}},
      {"width='100%' height='100%' viewBox='0 0 9 8'", {9, 8}},
      {"width='30' viewBox='0 0 9 8'", {9, 8}},
      {"", {300, 150}}};
  for (const auto& [attributes, size] : cases) {
    const auto svg = writtenSVG(attributes, "");
    const auto picture = pictureOf(svg.text());
    ASSERT_NE(picture, nullptr) << attributes;
    EXPECT_NEAR(picture->size().width, size.width, 1e-6) << attributes;
    EXPECT_NEAR(picture->size().height, size.height, 1e-6) << attributes;
  }
  for (const char* none : {"width='0' height='1'", "width='1' height='0'", "viewBox='0 0 0 9'"}) {
    const auto svg = writtenSVG(none, "");
    const auto picture = pictureOf(svg.text());
    EXPECT_TRUE(!picture || picture->size() == (kvl::Size{300, 150})) << none;
  }
}

// Nothing of this is guessed at any more.
TEST(SVGPictureTest, ColorsPatternsDashesAndFilesInsideAreDrawn) {
  const char* const pictures[] = {
      "<rect width='32' height='16' fill='#4e9a06'/>",
      "<!-- 1e9 --><rect width='32' height='16' style='fill:#4e9a06'/>",
      "<pattern id='p' width='4' height='4' patternUnits='userSpaceOnUse'>"
      "<rect width='4' height='4' fill='#4e9a06'/></pattern>"
      "<rect width='32' height='16' fill='url(#p)'/>",
      "<path d='M0 8h32' stroke='#4e9a06' stroke-width='16' stroke-dasharray='31 .1'/>",
      "<style>rect { fill: #4e9a06 }</style><rect width='32' height='16'/>",
      "<image width='32' height='16' href=\"data:image/svg+xml,"
      "%3Csvg xmlns='http://www.w3.org/2000/svg' width='32' height='16'%3E"
      "%3Crect width='32' height='16' fill='%234e9a06'/%3E%3C/svg%3E\"/>"};
  for (const auto* elements : pictures) {
    const auto svg = writtenSVG("width='32' height='16'", elements);
    const auto bitmap = drawn(svg.text(), 32, 16);
    ASSERT_FALSE(bitmap.empty()) << elements;
    EXPECT_EQ(pixelAt(bitmap, 8, 8), (Pixel{0x4E, 0x9A, 0x06, 255})) << elements;
  }
}

TEST(SVGPictureTest, EntitiesOfItsOwnAreExpanded) {
  const auto svg = "<!DOCTYPE svg [<!ENTITY fill '#4e9a06'>]>" +
                   std::string(writtenSVG("width='32' height='16'",
                                          "<rect width='32' height='16' fill='&fill;'/>")
                                   .text());
  const auto bitmap = drawn(svg, 32, 16);
  ASSERT_FALSE(bitmap.empty());
  EXPECT_EQ(pixelAt(bitmap, 8, 8), (Pixel{0x4E, 0x9A, 0x06, 255}));
}

// Whoever confines the process does not have to rely on that.
TEST(SVGPictureTest, NoOtherFileIsRead) {
  const kvltest::ImageFolder folder;
  const auto png = folder.write("a.png", kvltest::madePixbuf("png", 32, 16).text());
  const auto sheet = folder.write("a.css", "rect{fill:red !important}");
  const auto text = folder.write("a.txt", "<rect width='32' height='16' fill='red'/>");
  const kvltest::WorkingDirectory inside(folder.path());
  const std::string plain = "<rect width='32' height='16' fill='lime'/>";
  for (const auto& element :
       {"<image width='32' height='16' href='file://" + png + "'/>",
        std::string("<image width='32' height='16' href='a.png'/>"),
        "<style>@import 'file://" + sheet + "';</style>",
        std::string("<style>@import 'a.css';</style>"),
        "<include xmlns='http://www.w3.org/2001/XInclude' href='file://" + text + "'/>"}) {
    const auto svg = writtenSVG("width='32' height='16'", plain + element);
    const auto bitmap = drawn(svg.text(), 32, 16);
    ASSERT_FALSE(bitmap.empty()) << element;
    EXPECT_EQ(pixelAt(bitmap, 8, 8), (Pixel{0, 255, 0, 255})) << element;
  }
  const auto entity = "<!DOCTYPE svg [<!ENTITY a SYSTEM 'file://" + text + "'>]>" +
                      std::string(writtenSVG("width='32' height='16'", plain + "&a;").text());
  const auto picture = pictureOf(entity);
  if (picture) EXPECT_EQ(pixelAt(drawn(picture, 32, 16), 8, 8), (Pixel{0, 255, 0, 255}));
}

}  // namespace
