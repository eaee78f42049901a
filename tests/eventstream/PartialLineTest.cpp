#include "eventstream/PartialLine.h"

#include <gtest/gtest.h>

namespace {

using kvl::Data;
using kvl::eventstream::PartialLine;

TEST(PartialLineTest, BeginsEmpty) {
  PartialLine line;
  line.resume(std::nullopt);
  EXPECT_TRUE(line.empty());
  EXPECT_TRUE(line.share().empty());
}

TEST(PartialLineTest, GoesOnFromWhatItGaveOut) {
  PartialLine line;
  line.append("one");
  const Data first = line.share();
  line.resume(first);
  line.append(" two");
  EXPECT_EQ(line.share().text(), "one two");
  EXPECT_EQ(first.text(), "one");
}

TEST(PartialLineTest, GoesOnInPlaceWhereThereIsRoom) {
  PartialLine line;
  line.append(std::string(100, 'a'));
  line.append("b");  // makes room for as much again
  const Data first = line.share();
  for (Data last = first; last.size() < 200; last = line.share()) {
    ASSERT_EQ(last.data(), first.data());
    line.resume(last);
    line.append("c");
  }
  EXPECT_EQ(first.text(), std::string(100, 'a') + "b");
}

TEST(PartialLineTest, WhatWasGivenOutStaysAsItIsHoweverTheLineGrows) {
  PartialLine line;
  std::vector<Data> given;
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    line.append(std::to_string(i) + ",");
    given.push_back(line.share());
    line.resume(given.back());
  }
  for (int i = 0; i < 300; ++i) {
    expected += std::to_string(i) + ",";
    EXPECT_EQ(given[static_cast<std::size_t>(i)].text(), expected);
  }
}

TEST(PartialLineTest, BytesOfSomebodyElseAreCopied) {
  PartialLine line;
  line.append("own");
  const Data own = line.share();
  const Data other = Data::fromText("other");
  line.resume(other);
  line.append("!");
  EXPECT_EQ(line.share().text(), "other!");
  EXPECT_EQ(own.text(), "own");
  EXPECT_EQ(other.text(), "other");
}

TEST(PartialLineTest, AnOlderStateIsNotGoneOnInPlace) {
  PartialLine line;
  line.append("one two");
  const Data whole = line.share();
  line.resume(whole.slice(0, 3));
  line.append(" three");
  EXPECT_EQ(line.share().text(), "one three");
  EXPECT_EQ(whole.text(), "one two");
}

TEST(PartialLineTest, ForgetsWhatWasCleared) {
  PartialLine line;
  line.append("one");
  const Data given = line.share();
  line.resume(std::nullopt);
  EXPECT_TRUE(line.empty());
  line.append("two");
  EXPECT_EQ(line.share().text(), "two");
  EXPECT_EQ(given.text(), "one");
}

TEST(PartialLineTest, BytesThatWereGivenOutOutliveIt) {
  Data given;
  {
    PartialLine line;
    line.append("one");
    given = line.share();
  }
  EXPECT_EQ(given.text(), "one");
}

}  // namespace
