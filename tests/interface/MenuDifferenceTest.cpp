#include "platform/interface/binding/MenuDifference.h"

#include <local/platform/MenuItem.h>

#include <gmock/gmock.h>

#include <map>
#include <string>

namespace {

using kvl::MenuItem;
using kvl::interface::MenuDifference;
using testing::ElementsAre;
using testing::IsEmpty;

// From the items that "before" names to those that "after" names.
MenuDifference differenceBetween(const std::string& before, const std::string& after) {
  std::map<char, std::shared_ptr<MenuItem>> items;
  for (const char name : before + after) items.try_emplace(name, MenuItem::itemWithTitle("x"));
  std::vector<const MenuItem*> shown;
  for (const char name : before) shown.push_back(items[name].get());
  std::vector<std::shared_ptr<MenuItem>> wanted;
  for (const char name : after) wanted.push_back(items[name]);
  return kvl::interface::menuDifference(shown, wanted);
}

// Which of the items are moved when they change their places from "before" to "after".
std::string movedBetween(const std::string& before, const std::string& after) {
  const auto rows = differenceBetween(before, after).rows;
  std::string moved;
  for (std::size_t i = 0; i < rows.size(); ++i)
    if (rows[i].moved) moved += after[i];
  return moved;
}

TEST(MenuDifferenceTest, AsFewAsPossibleAreMoved) {
  EXPECT_EQ(movedBetween("abcde", "abcde"), "");
  EXPECT_EQ(movedBetween("abcde", "eabcd"), "e");
  EXPECT_EQ(movedBetween("abcde", "bcdea"), "a");
  EXPECT_EQ(movedBetween("abcde", "xdayb"), "d");
  EXPECT_EQ(movedBetween("ab", "ba").size(), 1U);
  EXPECT_EQ(movedBetween("abcd", "dcba").size(), 3U);
  EXPECT_EQ(movedBetween("aba", "aab").size(), 1U);
  EXPECT_EQ(movedBetween("", "abc"), "");
  EXPECT_EQ(movedBetween("abc", ""), "");
}

TEST(MenuDifferenceTest, ARowKnowsWhichOneItWasBefore) {
  const auto rows = differenceBetween("abc", "cxa").rows;
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].previous, 2U);
  EXPECT_EQ(rows[1].previous, std::nullopt);
  EXPECT_EQ(rows[2].previous, 0U);
}

TEST(MenuDifferenceTest, RowsWhoseItemsAreNotWantedAreGone) {
  EXPECT_THAT(differenceBetween("abc", "b").gone, ElementsAre(0U, 2U));
  EXPECT_THAT(differenceBetween("abc", "cba").gone, IsEmpty());
}

TEST(MenuDifferenceTest, AnItemThatIsThereTwiceHasTwoRows) {
  EXPECT_THAT(differenceBetween("aa", "a").gone, ElementsAre(1U));
  const auto rows = differenceBetween("a", "aa").rows;
  EXPECT_EQ(rows[0].previous, 0U);
  EXPECT_EQ(rows[1].previous, std::nullopt);
}

}  // namespace
