#include "platform/interface/images/SVGStructure.h"
#include "tests/interface/MadeBytes.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using kvltest::repeated;

// None when the document is not drawn.
std::optional<std::size_t> layersOf(const std::string& document) {
  return kvl::images::layersOfSVG(kvltest::spanOf(document));
}

std::optional<std::size_t> layersWithin(const std::string& elements) {
  return layersOf("<svg>" + elements + "</svg>");
}

bool isDrawn(const std::string& elements) {
  return layersWithin(elements).has_value();
}

TEST(SVGStructureTest, ADocumentIsWholeAndItsRootIsSVG) {
  EXPECT_EQ(layersOf("<svg/>"), 1U);
  EXPECT_EQ(layersOf("<s:svg xmlns:s='http://www.w3.org/2000/svg'/>"), 1U);
  for (const char* document : {"", " ", "<!-- -->", "<svg>", "<svg", "<svg></g>", "<g><svg/></g>",
                               "<svg:g/>", "<Svg/>", "<svg/><", "<svg a='1/>", "<svg>&a;</svg>"}) {
    EXPECT_EQ(layersOf(document), std::nullopt) << document;
  }
}

TEST(SVGStructureTest, NestedLayersAddUpAndOthersDoNot) {
  const auto nested = [](std::size_t depth) {
    return repeated("<g opacity='.5'>", depth) + repeated("</g>", depth);
  };
  EXPECT_EQ(layersWithin(nested(1)), 3U);
  EXPECT_EQ(layersWithin(nested(2)), 5U);
  EXPECT_EQ(layersWithin(nested(1) + nested(3) + nested(2)), 7U);
  EXPECT_EQ(layersWithin("<g opacity='.5' mask='url(#a)' style='filter:url(#b);opacity:0'/>"), 9U);
}

TEST(SVGStructureTest, EachPropertyThatNeedsASurfaceMakesALayer) {
  for (const std::string property :
       {"opacity", "filter", "mask", "clip-path", "mix-blend-mode", "isolation"}) {
    EXPECT_EQ(layersWithin("<g " + property + "='x'/>"), 3U) << property;
    EXPECT_EQ(layersWithin("<g style='" + property + ":x'/>"), 3U) << property;
    EXPECT_EQ(layersWithin("<g style='fill:red; " + property + " : x;'/>"), 3U) << property;
    EXPECT_EQ(layersWithin("<g/><style>g{" + property + ":x}</style>"), 7U) << property;
  }
  EXPECT_EQ(layersWithin("<g style='OPACITY:0'/>"), 3U);
  EXPECT_EQ(layersWithin("<g style='opacity:0;opacity:1;opacity:0'/>"), 5U);
}

TEST(SVGStructureTest, ValuesThatChangeNothingMakeNoLayer) {
  for (const std::string value : {"1", "1.0", "100%", "none", "normal", "auto"}) {
    EXPECT_EQ(layersWithin("<g opacity='" + value + "'/>"), 1U) << value;
    EXPECT_EQ(layersWithin("<g opacity=' \t\r\n" + value + " \t\r\n'/>"), 1U) << value;
    EXPECT_EQ(layersWithin("<g style='opacity:" + value + "'/>"), 1U) << value;
    EXPECT_EQ(layersWithin("<g style='opacity :  " + value + " ;fill:red'/>"), 1U) << value;
    EXPECT_EQ(layersWithin("<style>g{opacity:" + value + "}a{}</style>"), 1U) << value;
  }
}

TEST(SVGStructureTest, OtherPropertiesMakeNoLayer) {
  for (const std::string property :
       {"fill-opacity", "stroke-opacity", "xopacity", "Xopacity", "x-opacity"}) {
    EXPECT_EQ(layersWithin("<g " + property + "='.5'/>"), 1U) << property;
    EXPECT_EQ(layersWithin("<g style='" + property + ":.5'/>"), 1U) << property;
    EXPECT_EQ(layersWithin("<style>g{" + property + ":.5}</style>"), 1U) << property;
  }
}

TEST(SVGStructureTest, WhereElementsAreDrawnAgainAllLayersCount) {
  const std::string two = "<g opacity='.5'/><g opacity='.5'/>";
  for (const char* element :
       {"<use/>", "<marker/>", "<mask/>", "<clipPath/>", "<switch/>", "<s:use/>"}) {
    EXPECT_EQ(layersWithin(two + element), 5U) << element;
    EXPECT_EQ(layersWithin(element + two), 5U) << element;
  }
  EXPECT_EQ(layersWithin(two + "<feImage/>"), 6U);
  EXPECT_EQ(layersWithin(two + "<g/>"), 3U);
}

TEST(SVGStructureTest, EachEffectTakesASurface) {
  EXPECT_EQ(layersWithin("<filter><feBlend/><feOffset/><feFlood/></filter>"), 4U);
}

TEST(SVGStructureTest, ALayerInASheetMayBeThatOfEachElement) {
  EXPECT_EQ(layersWithin("<style>g{opacity:.5}</style>"), 5U);
  EXPECT_EQ(layersWithin("<g/><g/><g/><style>g{opacity:.5}</style>"), 11U);
  EXPECT_EQ(layersWithin("<g opacity='.5'/><style>g{opacity:.5}</style>"), 9U);
}

TEST(SVGStructureTest, UpToTenThousandElementsAreDrawn) {
  EXPECT_TRUE(isDrawn(repeated("<g/>", 9'999)));
  EXPECT_FALSE(isDrawn(repeated("<g/>", 10'000)));
}

TEST(SVGStructureTest, ElementsStandUpTo256Deep) {
  EXPECT_TRUE(isDrawn(repeated("<g>", 255) + repeated("</g>", 255)));
  EXPECT_TRUE(isDrawn(repeated(repeated("<g>", 255) + repeated("</g>", 255), 2)));
  EXPECT_FALSE(isDrawn(repeated("<g>", 256) + repeated("</g>", 256)));
}

TEST(SVGStructureTest, ADocumentHasUpToAMebibyte) {
  const std::string start = "<svg><!--";
  const std::string end = "--></svg>";
  const auto middle = (1U << 20) - start.size() - end.size();
  EXPECT_EQ(layersOf(start + std::string(middle, 'x') + end), 1U);
  EXPECT_EQ(layersOf(start + std::string(middle + 1, 'x') + end), std::nullopt);
}

TEST(SVGStructureTest, AnAttributeHasUpTo32KiB) {
  const auto withAttribute = [](const std::string& name, std::size_t length) {
    return isDrawn("<g " + name + "='" + std::string(length, 'x') + "'/>");
  };
  for (const char* name : {"d", "xlink:href", "xlink:title", "x:href"}) {
    EXPECT_TRUE(withAttribute(name, 32'768)) << name;
    EXPECT_FALSE(withAttribute(name, 32'769)) << name;
  }
  EXPECT_TRUE(withAttribute("editor:note", 100'000));
}

TEST(SVGStructureTest, AllSheetsTogetherHaveUpTo32KiBWithWhatEndsThem) {
  const auto sheet = [](std::size_t length) {
    return "<style>" + std::string(length, 'x') + "</style>";
  };
  EXPECT_TRUE(isDrawn(sheet(32'767)));
  EXPECT_FALSE(isDrawn(sheet(32'768)));
  EXPECT_TRUE(isDrawn(sheet(16'383) + sheet(16'383)));
  EXPECT_FALSE(isDrawn(sheet(16'383) + sheet(16'384)));
  EXPECT_TRUE(isDrawn("<desc>" + std::string(100'000, 'x') + "</desc>"));
}

TEST(SVGStructureTest, AllTextThatIsDrawnTogetherHasUpTo4KiB) {
  const std::string half = std::string(2'048, 'x');
  EXPECT_TRUE(isDrawn("<text>" + half + half + "</text>"));
  EXPECT_FALSE(isDrawn("<text>" + half + half + "x</text>"));
  EXPECT_TRUE(isDrawn("<text><tspan>" + half + "</tspan>" + half + "</text>"));
  EXPECT_FALSE(isDrawn("<text><tspan>" + half + "</tspan>" + half + "x</text>"));
  EXPECT_FALSE(
      isDrawn("<text><a><tspan>" + half + "x</tspan></a></text><text>" + half + "</text>"));
  EXPECT_TRUE(isDrawn("<text>" + half + half + "</text>" + half));
}

TEST(SVGStructureTest, PatternsAndElementsInASheetAreNotDrawn) {
  EXPECT_FALSE(isDrawn("<pattern/>"));
  EXPECT_FALSE(isDrawn("<s:pattern/>"));
  EXPECT_TRUE(isDrawn("<patterns/>"));
  EXPECT_FALSE(isDrawn("<style><g/></style>"));
  EXPECT_TRUE(isDrawn("<style>a{}</style><g/>"));
}

TEST(SVGStructureTest, FilesWithinAreNotDrawn) {
  for (const char* text : {"data:", "DATA:", "x data:y", "d a\tt\na:", "\\", "\\64 ata:"}) {
    EXPECT_FALSE(isDrawn("<g fill='" + std::string(text) + "'/>")) << text;
    EXPECT_FALSE(isDrawn("<g xlink:href='" + std::string(text) + "'/>")) << text;
    EXPECT_FALSE(isDrawn("<g x:href='" + std::string(text) + "'/>")) << text;
    EXPECT_FALSE(isDrawn("<style>" + std::string(text) + "</style>")) << text;
    EXPECT_FALSE(isDrawn("<?sheet " + std::string(text) + "?>")) << text;
    EXPECT_TRUE(isDrawn("<g editor:note='" + std::string(text) + "'/>")) << text;
    EXPECT_TRUE(isDrawn("<desc>" + std::string(text) + "</desc>")) << text;
    EXPECT_TRUE(isDrawn("<!--" + std::string(text) + "-->")) << text;
  }
  EXPECT_TRUE(isDrawn("<g fill='data'/><style>data</style><?sheet data?>"));
}

TEST(SVGStructureTest, OnlyTextInUTF8IsDrawn) {
  for (const char* declaration :
       {"", "<?xml version='1.0'?>", "<?xml version='1.0' encoding='utf-8'?>",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>", "<?xml encoding = 'Utf8' ?>",
        "<?xml encoding='US-ASCII' standalone='no'?>"}) {
    EXPECT_EQ(layersOf(std::string(declaration) + "<svg/>"), 1U) << declaration;
    EXPECT_EQ(layersOf("\xEF\xBB\xBF" + std::string(declaration) + "<svg/>"), 1U) << declaration;
  }
  for (const char* declaration :
       {"<?xml encoding='UTF-16'?>", "<?xml encoding='latin1'?>", "<?xml encoding=''?>",
        "<?xml encoding=?>", "<?xml encoding='xutf-8'?>", "<?xml encoding='utf-8x'?>",
        "<?xml encoding='UTF-7' standalone='utf-8'?>"}) {
    EXPECT_EQ(layersOf(std::string(declaration) + "<svg/>"), std::nullopt) << declaration;
  }
  for (const char* mark : {"\xEF", "\xEF\xBB", "\xFE\xFF", "\xEF\xBB\xBE", "\xEF\xBC\xBF"}) {
    EXPECT_EQ(layersOf(std::string(mark) + "<svg/>"), std::nullopt);
  }
}

TEST(SVGStructureTest, ADeclarationOfTheTypeDeclaresNoEntities) {
  EXPECT_EQ(layersOf("<!DOCTYPE svg PUBLIC '-//W3C//DTD SVG 1.1//EN' 'svg11.dtd'><svg/>"), 1U);
  EXPECT_EQ(layersOf("<!DOCTYPE svg [<!ENTITY a 'b'>]><svg/>"), std::nullopt);
  EXPECT_EQ(layersOf("<!DOCTYPE svg []><svg/>"), std::nullopt);
  EXPECT_EQ(layersOf("<!--[--><svg/>"), 1U);
}

}  // namespace
