#include "tests/presentation/MenuFixture.h"

#include <optional>

namespace {

using kvl::AttributedText;
using kvl::ColourRole;
using kvl::Dictionary;
using kvl::FontRole;
using kvl::MenuItem;
using kvl::SystemVersion;

// What one version of the system makes of the same descriptions.
struct Expectation {
  SystemVersion version;
  bool headers;
  bool badges;
  bool subtitles;
};

class MenuVersionTest : public kvltest::MenuFixture,
                        public testing::WithParamInterface<Expectation> {
 protected:
  MenuVersionTest() { kvl::setSystemVersion(GetParam().version); }

  static AttributedText twoLines() {
    return {{{"Recent", FontRole::menu, ColourRole::label},
             {"\nfiles", FontRole::menuSmall, ColourRole::secondaryLabel}}};
  }
  static AttributedText smallHeader() {
    return {{{"Recent", FontRole::menuSmall, ColourRole::label}}};
  }
  static Dictionary described(const char* type) { return {{"type", type}, {"text", "Recent"}}; }
  static Dictionary withSubtext(const char* type) {
    auto description = described(type);
    description.set("subtext", "files");
    return description;
  }
};

TEST_P(MenuVersionTest, TitleIsASectionHeaderOrInSmallPrint) {
  const auto header = build(described("title"));
  const bool headers = GetParam().headers;
  EXPECT_EQ(header->kind(), headers ? MenuItem::Kind::sectionHeader : MenuItem::Kind::item);
  EXPECT_EQ(header->title(), headers ? "Recent" : "");
  EXPECT_EQ(header->attributedTitle(), headers ? std::nullopt : std::optional(smallHeader()));
  EXPECT_EQ(header->shownTitle(), "Recent");
  EXPECT_FALSE(header->isEnabled());
}

TEST_P(MenuVersionTest, SubtextIsASubtitleOrTheSecondLineOfTheTitle) {
  const auto item = build(withSubtext("item"));
  const bool subtitles = GetParam().subtitles;
  EXPECT_EQ(item->title(), "Recent");
  EXPECT_EQ(item->subtitle(), subtitles ? std::optional<std::string>("files") : std::nullopt);
  EXPECT_EQ(item->attributedTitle(), subtitles ? std::nullopt : std::optional(twoLines()));
}

TEST_P(MenuVersionTest, SubtextOfATitleReplacesItsSmallPrint) {
  const auto header = build(withSubtext("title"));
  const bool subtitles = GetParam().subtitles;
  EXPECT_EQ(header->subtitle(), subtitles ? std::optional<std::string>("files") : std::nullopt);
  EXPECT_EQ(header->attributedTitle(), subtitles ? std::nullopt : std::optional(twoLines()));
}

TEST_P(MenuVersionTest, UpdatesAreABadgeOrNothing) {
  const auto item = buildItem({{"updates", 1}});
  EXPECT_EQ(item->badge(), GetParam().badges ? std::optional(kvl::MenuItemBadge{1}) : std::nullopt);
}

TEST_P(MenuVersionTest, UpdatesOfTheWrongTypeAreLoggedEitherWay) {
  static_cast<void>(buildItem({{"updates", "1"}}));
  EXPECT_EQ(log_.count("expect updates as integer"), 1U);
}

INSTANTIATE_TEST_SUITE_P(Versions, MenuVersionTest,
                         testing::Values(Expectation{{13, 0}, false, false, false},
                                         Expectation{{13, 6}, false, false, false},
                                         Expectation{{14, 0}, true, true, false},
                                         Expectation{{14, 3}, true, true, false},
                                         Expectation{{14, 4}, true, true, true},
                                         Expectation{{15, 0}, true, true, true}),
                         [](const auto& parameter) {
                           const auto& version = parameter.param.version;
                           return std::to_string(version.major) + "point" +
                                  std::to_string(version.minor);
                         });

}  // namespace
