#include "platform/interface/images/SVGStructure.h"
#include "tests/interface/MadeBytes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

bool isDrawnWith(const std::string& elements) {
  return kvl::images::layersOfSVG(kvltest::spanOf("<svg>" + elements + "</svg>")).has_value();
}

// The longest line that dashes of this length may have: 12,500 times as long as they are.
TEST(SVGDashTest, ALineHasAsManyDashesAsAnIconNeeds) {
  EXPECT_TRUE(isDrawnWith("<line stroke-dasharray='1' x2='12500'/>"));
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='1' x2='12501'/>"));
  EXPECT_TRUE(isDrawnWith("<line stroke-dasharray='2 1,1' x2='50000'/>"));
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='2 1,1' x2='50001'/>"));
  EXPECT_FALSE(isDrawnWith("<line x2='12501' stroke-dasharray='1'/>"));
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='0' x2='1'/>"));
  EXPECT_TRUE(isDrawnWith("<line x2='1000000'/>"));
}

TEST(SVGDashTest, TheNumbersOfOneElementAddUp) {
  EXPECT_TRUE(isDrawnWith("<path stroke-dasharray='1' d='M1 2l-3,.5H1e4z'/>"));
  EXPECT_TRUE(isDrawnWith("<line stroke-dasharray='1' x1='6250' x2='6250'/>"));
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='1' x1='6250' x2='6251'/>"));
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='1' x1='-6250' x2='6251'/>"));
  EXPECT_FALSE(isDrawnWith("<path stroke-dasharray='1' d='M0 0L6000.5.5 6500'/>"));
  EXPECT_FALSE(isDrawnWith("<path stroke-dasharray='1' d='M.0.H1.26e4'/>"));
  EXPECT_FALSE(isDrawnWith("<path stroke-dasharray='1' d='M0H1e999'/>"));
  EXPECT_TRUE(isDrawnWith("<line x2='6251'/><line stroke-dasharray='1' x2='6251'/>"));
}

TEST(SVGDashTest, TheLongestLineAndTheShortestDashesCount) {
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='1'/><line x2='12501'/><line x2='1'/>"));
  EXPECT_FALSE(isDrawnWith(
      "<g stroke-dasharray='9'/><g stroke-dasharray='1'/><g stroke-dasharray='9'/><g x='12501'/>"));
  EXPECT_FALSE(isDrawnWith("<g style='stroke-dasharray:9;stroke-dasharray:1'/><g x='20000'/>"));
  EXPECT_FALSE(isDrawnWith("<g style='stroke-dasharray:1;stroke-width:9'/><g x='12501'/>"));
  EXPECT_FALSE(isDrawnWith("<style>g{stroke-dasharray:1}a{x:9}</style><g x='12501'/>"));
  EXPECT_TRUE(isDrawnWith("<style>g{stroke-dasharray:1}a{x:9}</style><g x='12500'/>"));
}

TEST(SVGDashTest, NumbersThatAreNoLengthsDoNotCount) {
  for (const std::string name : {"id", "class", "fill", "stroke", "href", "xmlns", "xmlnsx"}) {
    EXPECT_TRUE(isDrawnWith("<line stroke-dasharray='1' " + name + "='99999'/>")) << name;
  }
  for (const std::string name : {"ids", "x", "stroke-width", "xlink:href"}) {
    EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='1' " + name + "='99999'/>")) << name;
  }
}

TEST(SVGDashTest, NoneIsNoDashes) {
  EXPECT_TRUE(isDrawnWith("<line stroke-dasharray='none' x2='99999'/>"));
  EXPECT_TRUE(isDrawnWith("<line style='stroke-dasharray:none' x2='99999'/>"));
  EXPECT_FALSE(isDrawnWith("<line style='stroke-dasharray:1;fill:none' x2='99999'/>"));
  EXPECT_FALSE(isDrawnWith("<line style='stroke-dasharray:1/*none*/' x2='1'/>"));
  EXPECT_FALSE(isDrawnWith("<line style='stroke-dasharray:9/*x*/' x2='1'/>"));
}

TEST(SVGDashTest, LengthsThatNumbersAloneDoNotTellAreRefused) {
  for (const std::string dashes : {"9%", "9em", "9e-9", "9mm", "9in", "9 1em"}) {
    EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='" + dashes + "' x2='1'/>")) << dashes;
    EXPECT_FALSE(isDrawnWith("<line style='stroke-dasharray:" + dashes + "' x2='1'/>")) << dashes;
  }
  EXPECT_TRUE(isDrawnWith("<line stroke-dasharray='9px 1pt' x2='1'/>"));
  for (const std::string mirror : {"t", "T"}) {
    EXPECT_FALSE(isDrawnWith("<path stroke-dasharray='9' d='M0 0" + mirror + "1 1'/>"));
    EXPECT_TRUE(isDrawnWith("<path stroke-dasharray='9' class='" + mirror + "' d='M0 0'/>"));
    EXPECT_TRUE(isDrawnWith("<path stroke-dasharray='9' x='" + mirror + "' d='M0 0'/>"));
    EXPECT_TRUE(isDrawnWith("<path d='M0 0" + mirror + "1 1'/>"));
  }
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='9' vector-effect='x'/>"));
  EXPECT_FALSE(isDrawnWith("<line stroke-dasharray='9' style='vector-effect:x'/>"));
  EXPECT_TRUE(isDrawnWith("<line vector-effect='x'/>"));
}

TEST(SVGDashTest, DashesOfARootAndOfOtherElementsCount) {
  EXPECT_FALSE(isDrawnWith("<g stroke-dasharray='1'><line x2='12501'/></g>"));
  EXPECT_FALSE(isDrawnWith("<g style='a:b;stroke-dasharray:1'/><line x2='12501'/>"));
}

}  // namespace
