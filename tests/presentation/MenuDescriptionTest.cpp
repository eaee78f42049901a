#include "tests/presentation/MenuFixture.h"

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Value;
using KVLEncoding::menuFormWithIdentifier;
using KVLEncoding::menuItemWithEllipsis;
using testing::ElementsAre;
using testing::IsEmpty;

bool isSame(const std::optional<Dictionary>& result, const Dictionary& stored) {
  return result && Value(*result).isSameObject(stored);
}

class MenuFormTest : public testing::Test {
 protected:
  const kvltest::LogCapture log_;
  const Dictionary form_{{"id", "inner"}};
  const Dictionary other_{{"id", "other"}};
  const Dictionary fallback_{{"id", "fallback"}};
};

TEST_F(MenuFormTest, IsTheFormOfTheEntryWithTheIdentifier) {
  const Dictionary document{{"menu", Array{Dictionary{{"id", "a"}, {"form", other_}},
                                           Dictionary{{"id", "b"}, {"form", form_}}}}};
  EXPECT_TRUE(isSame(menuFormWithIdentifier("b", document, fallback_), form_));
}

TEST_F(MenuFormTest, TheFirstOfTwoEntriesCounts) {
  const Dictionary document{{"menu", Array{Dictionary{{"id", "a"}, {"form", form_}},
                                           Dictionary{{"id", "a"}, {"form", other_}}}}};
  EXPECT_TRUE(isSame(menuFormWithIdentifier("a", document, fallback_), form_));
}

TEST_F(MenuFormTest, TheIdInsideTheFormIsNotLookedAt) {
  const Dictionary document{{"menu", Array{Dictionary{{"id", "a"}, {"form", form_}}}}};
  EXPECT_TRUE(isSame(menuFormWithIdentifier("inner", document, fallback_), fallback_));
}

TEST_F(MenuFormTest, MatchingEntryWithoutAFormGivesNoneAndNotTheFallback) {
  const Dictionary document{
      {"menu", Array{Dictionary{{"id", "a"}}, Dictionary{{"id", "a"}, {"form", form_}}}}};
  EXPECT_EQ(menuFormWithIdentifier("a", document, fallback_), std::nullopt);
}

TEST_F(MenuFormTest, NoMatchGivesTheFallbackOrNone) {
  const Dictionary document{{"menu", Array{Dictionary{{"id", "a"}, {"form", form_}}}}};
  EXPECT_TRUE(isSame(menuFormWithIdentifier("A", document, fallback_), fallback_));
  EXPECT_EQ(menuFormWithIdentifier("A", document), std::nullopt);
}

TEST_F(MenuFormTest, NoDocumentNoMenuAndAnEmptyOneGiveTheFallback) {
  EXPECT_TRUE(isSame(menuFormWithIdentifier("a", std::nullopt, fallback_), fallback_));
  EXPECT_TRUE(isSame(menuFormWithIdentifier("a", Dictionary{}, fallback_), fallback_));
  EXPECT_TRUE(
      isSame(menuFormWithIdentifier("a", Dictionary{{"menu", Array{}}}, fallback_), fallback_));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuFormTest, EntryWithoutIdNeverMatches) {
  const Dictionary document{{"menu", Array{Dictionary{{"form", form_}}}}};
  EXPECT_TRUE(isSame(menuFormWithIdentifier("", document, fallback_), fallback_));
}

TEST_F(MenuFormTest, WrongTypesAreLoggedAndCountAsAbsent) {
  const Dictionary document{
      {"menu", Array{5, Dictionary{{"id", 1}}, Dictionary{{"id", "a"}, {"form", "x"}}}}};
  EXPECT_EQ(menuFormWithIdentifier("a", document, fallback_), std::nullopt);
  EXPECT_THAT(log_.lines(),
              ElementsAre("expect id as string in dictionary {id = 1}",
                          "expect form as dictionary in dictionary {id = a; form = x}"));
  EXPECT_TRUE(isSame(menuFormWithIdentifier("a", Dictionary{{"menu", "x"}}, fallback_), fallback_));
}

class MenuEllipsisTest : public testing::Test {
 protected:
  static Value textOf(const std::optional<Dictionary>& description) {
    return description ? (*description)["text"] : Value("no description");
  }

  const kvltest::LogCapture log_;
  const Dictionary open_{{"type", "item"}, {"text", "Open"}, {"form", Dictionary{{"id", "x"}}}};
};

TEST_F(MenuEllipsisTest, NoDescriptionGivesNone) {
  EXPECT_EQ(menuItemWithEllipsis(std::nullopt), std::nullopt);
  const auto never = [](const std::optional<kvl::String>&) -> bool {
    ADD_FAILURE();
    return true;
  };
  EXPECT_EQ(menuItemWithEllipsis(std::nullopt, never), std::nullopt);
}

TEST_F(MenuEllipsisTest, IsAppendedToTheTextOfACopy) {
  const auto result = menuItemWithEllipsis(open_);
  EXPECT_EQ(textOf(result), Value("Open\u2026"));
  EXPECT_EQ(open_["text"], Value("Open"));
  EXPECT_TRUE((*result)["form"].isSameObject(open_["form"]));
  EXPECT_EQ(result->size(), open_.size());
}

TEST_F(MenuEllipsisTest, IsNotAppendedTwice) {
  const auto once = menuItemWithEllipsis(open_);
  EXPECT_EQ(textOf(menuItemWithEllipsis(once)), Value("Open\u2026"));
}

TEST_F(MenuEllipsisTest, IsNotAppendedToATextOfNothingElse) {
  const Dictionary description{{"text", "\u2026"}};
  EXPECT_EQ(menuItemWithEllipsis(description), description);
}

TEST_F(MenuEllipsisTest, ThreeFullStopsAreNoEllipsis) {
  EXPECT_EQ(textOf(menuItemWithEllipsis(Dictionary{{"text", "Open..."}})), Value("Open...\u2026"));
}

TEST_F(MenuEllipsisTest, MissingEmptyAndWrongTextsStayWhatTheyAre) {
  for (const auto& description :
       {Dictionary{}, Dictionary{{"text", ""}}, Dictionary{{"text", nullptr}}}) {
    EXPECT_EQ(menuItemWithEllipsis(description), description);
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
  const Dictionary number{{"text", 5}};
  EXPECT_EQ(menuItemWithEllipsis(number), number);
  EXPECT_THAT(log_.lines(), ElementsAre("expect text as string in dictionary {text = 5}"));
}

TEST_F(MenuEllipsisTest, ChangingTheCopyLeavesTheDescriptionAlone) {
  const Dictionary description{{"type", "item"}};
  auto copy = *menuItemWithEllipsis(description);
  copy.set("type", "title");
  EXPECT_EQ(description["type"], Value("item"));
}

TEST_F(MenuEllipsisTest, ConditionReceivesTheIdOfTheForm) {
  std::vector<std::optional<std::string>> seen;
  const auto condition = [&](const std::optional<kvl::String>& identifier) {
    seen.push_back(identifier ? std::optional(std::string(identifier->text())) : std::nullopt);
    return true;
  };
  EXPECT_EQ(textOf(menuItemWithEllipsis(open_, condition)), Value("Open\u2026"));
  EXPECT_EQ(textOf(menuItemWithEllipsis(Dictionary{{"text", "a"}}, condition)), Value("a\u2026"));
  static_cast<void>(menuItemWithEllipsis(Dictionary{{"form", Dictionary{}}}, condition));
  EXPECT_THAT(seen, ElementsAre("x", std::nullopt, std::nullopt));
}

TEST_F(MenuEllipsisTest, ConditionThatIsFalseGivesBackTheVeryDescription) {
  const auto no = [](const std::optional<kvl::String>&) { return false; };
  EXPECT_TRUE(isSame(menuItemWithEllipsis(open_, no), open_));
}

TEST_F(MenuEllipsisTest, NoConditionIsNoneAndAsksForNoForm) {
  const Dictionary description{{"text", "a"}, {"form", 5}};
  EXPECT_EQ(textOf(menuItemWithEllipsis(description, nullptr)), Value("a\u2026"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
