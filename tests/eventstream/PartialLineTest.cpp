#include "eventstream/PartialLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvl::Data;
using kvl::eventstream::PartialLine;

TEST(PartialLineTest, BeginsEmpty) {
  PartialLine line;
  EXPECT_TRUE(line.empty());
  EXPECT_TRUE(line.isASCII());
  EXPECT_TRUE(line.share().empty());
  line.clear();
  EXPECT_TRUE(line.empty());
}

TEST(PartialLineTest, GoesOnFromWhatItGaveOut) {
  PartialLine line;
  line.append("one", true);
  const Data first = line.share();
  line.append(" two", true);
  EXPECT_EQ(line.share().text(), "one two");
  EXPECT_EQ(first.text(), "one");
}

TEST(PartialLineTest, GoesOnInPlaceWhereThereIsRoom) {
  PartialLine line;
  line.append(std::string(1000, 'a'), true);
  line.append("b", true);  // makes room for as much again
  const Data first = line.share();
  for (Data last = first; last.size() < 2000; last = line.share()) {
    ASSERT_EQ(last.data(), first.data());
    line.append("c", true);
  }
  EXPECT_EQ(first.text(), std::string(1000, 'a') + "b");
}

TEST(PartialLineTest, WhatWasGivenOutStaysAsItIsHoweverTheLineGrows) {
  PartialLine line;
  std::vector<Data> given;
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    line.append(std::to_string(i) + ",", true);
    given.push_back(line.share());
  }
  for (int i = 0; i < 300; ++i) {
    expected += std::to_string(i) + ",";
    EXPECT_EQ(given[static_cast<std::size_t>(i)].text(), expected);
  }
}

TEST(PartialLineTest, BytesOfSomebodyElseAreCopied) {
  PartialLine line;
  line.append("own", true);
  const Data own = line.share();
  const Data other = Data::fromText("other");
  line.assign(other.text());
  line.append("!", true);
  EXPECT_EQ(line.share().text(), "other!");
  EXPECT_EQ(own.text(), "own");
  EXPECT_EQ(other.text(), "other");
}

TEST(PartialLineTest, ForgetsWhatWasCleared) {
  PartialLine line;
  line.append("one \u00e9", false);
  const Data given = line.share();
  line.clear();
  EXPECT_TRUE(line.empty());
  EXPECT_TRUE(line.isASCII());
  line.append("two", true);
  EXPECT_EQ(line.share().text(), "two");
  EXPECT_EQ(given.text(), "one \u00e9");
}

TEST(PartialLineTest, KeepsItsMemoryForTheNextLine) {
  PartialLine line;
  line.append("one", true);
  const char* const memory = line.text().data();
  line.clear();
  line.append("two", true);
  EXPECT_EQ(line.text().data(), memory);
  EXPECT_EQ(line.text(), "two");
}

TEST(PartialLineTest, IsASCIIWhileAllItsPartsAre) {
  PartialLine line;
  line.append("a", true);
  EXPECT_TRUE(line.isASCII());
  line.append("\u00e9", false);
  line.append("b", true);
  EXPECT_FALSE(line.isASCII());
  line.assign("c");  // nobody has looked
  EXPECT_FALSE(line.isASCII());
}

TEST(PartialLineTest, TheWholeLineLeavesItAsItIs) {
  PartialLine line;
  line.append("one", true);
  const Data whole = line.completed(" two");
  EXPECT_EQ(whole.text(), "one two");
  EXPECT_EQ(line.text(), "one");
  EXPECT_EQ(line.share().text(), "one");
}

TEST(PartialLineTest, AWholeLineStaysForWhoeverKeepsIt) {
  PartialLine line;
  line.append("one", true);
  const Data kept = line.completed(std::string(1000, '!'));
  line.clear();
  line.append("two", true);
  EXPECT_EQ(kept.text(), "one" + std::string(1000, '!'));
  EXPECT_EQ(line.text(), "two");
}

TEST(PartialLineTest, TheMemoryOfAWholeLineThatNobodyKeepsIsUsedAgain) {
  PartialLine line;
  line.append("one", true);
  const char* const memory = line.text().data();
  line.reclaim(line.completed(" two"));
  line.clear();
  line.append("three", true);
  EXPECT_EQ(line.text().data(), memory);
}

TEST(PartialLineTest, WhatWasGivenOutBesideAWholeLineStays) {
  PartialLine line;
  line.append("one", true);
  const Data whole = line.completed(" two");
  const Data given = line.share();
  line.reclaim(whole);
  line.clear();
  line.append("three", true);
  EXPECT_EQ(given.text(), "one");
}

TEST(PartialLineTest, AWholeLineStaysWhileOtherBytesAreSet) {
  PartialLine line;
  line.append("one", true);
  const Data whole = line.completed(" two");
  line.assign("other");
  EXPECT_EQ(whole.text(), "one two");
  const Data given = line.completed(" end");
  line.reclaim(whole);  // that one is not what was given last
  line.clear();
  line.append("next", true);
  EXPECT_EQ(given.text(), "other end");
}

TEST(PartialLineTest, BytesThatWereGivenOutOutliveIt) {
  Data given;
  {
    PartialLine line;
    line.append("one", true);
    given = line.share();
  }
  EXPECT_EQ(given.text(), "one");
}

}  // namespace
