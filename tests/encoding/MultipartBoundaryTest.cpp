#include "encoding/Boundary.h"
#include "encoding/MultipartBody.h"
#include "tests/encoding/MultipartSupport.h"

#include <local/KVLExtensionsURLRequest.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace kvltest;
using kvl::encoding::writeMultipartBody;

// Bytes in which the search often finds the first and the last character at their distance.
std::string similarBytes(std::size_t size) {
  std::string bytes;
  while (bytes.size() < size) bytes += "abcdefABCDEaF";
  bytes.resize(size);
  return bytes;
}

TEST(BoundarySearchTest, FindsATextWhereverItBegins) {
  using kvl::encoding::occursIn;
  constexpr std::size_t kSize = 1100;  // more than a few windows of the search
  for (const auto& filling : {std::string(kSize, 'x'), similarBytes(kSize)}) {
    EXPECT_FALSE(occursIn(filling, kBoundary));
    for (std::size_t place = 0; place + kBoundary.size() <= kSize; ++place) {
      auto bytes = filling;
      bytes.replace(place, kBoundary.size(), kBoundary);
      EXPECT_TRUE(occursIn(bytes, kBoundary)) << place;
      // Not when its last character lies beyond the end.
      const auto end = place + kBoundary.size();
      EXPECT_FALSE(occursIn(std::string_view(bytes).substr(0, end - 1), kBoundary)) << place;
    }
  }
}

TEST(BoundarySearchTest, FindsNothingInLessThanTheText) {
  using kvl::encoding::occursIn;
  EXPECT_FALSE(occursIn("", kBoundary));
  EXPECT_FALSE(occursIn(kBoundary.substr(1), kBoundary));
  EXPECT_TRUE(occursIn(kBoundary, kBoundary));
}

// Nine times `occurring`, then `last`.
std::vector<std::string> nineTimes(std::string_view occurring, std::string_view last) {
  std::vector<std::string> boundaries(9, std::string(occurring));
  boundaries.emplace_back(last);
  return boundaries;
}

// The boundary that the body was written with when `kBoundary` comes first; empty for an error.
std::string boundaryTaken(const kvl::Array& inputs) {
  Boundaries boundaries({std::string(kBoundary), std::string(kOtherBoundary)});
  kvl::URLRequest request("a");
  EXPECT_EQ(writeMultipartBody(request, inputs, boundaries.source()), std::nullopt);
  const std::string type(*request.headers().find("Content-Type"));
  return type.substr(type.find('=') + 1);
}

TEST(MultipartBoundaryTest, FirstThatOccursInNoPartIsTaken) {
  EXPECT_EQ(boundaryTaken({input("a", "x")}), kBoundary);
  EXPECT_EQ(boundaryTaken({input("a", "x"), input("b", kBoundary)}), kOtherBoundary);
}

TEST(MultipartBoundaryTest, IsSearchedInEveryPieceOfAPart) {
  const std::string boundary(kBoundary);
  EXPECT_EQ(boundaryTaken({input("<" + boundary + ">", "x")}), kOtherBoundary);
  EXPECT_EQ(boundaryTaken({input("a", file(boundary + ".txt", "t/t", ""))}), kOtherBoundary);
  EXPECT_EQ(boundaryTaken({input("a", file("f", "t/" + boundary, ""))}), kOtherBoundary);
  EXPECT_EQ(boundaryTaken({input("a", file("f", "t/t", "-" + boundary + "-"))}), kOtherBoundary);
  EXPECT_EQ(boundaryTaken({input("a", kvl::Data::fromText(boundary))}), kOtherBoundary);
}

TEST(MultipartBoundaryTest, IsSearchedWithoutTheHyphensAndWithCase) {
  EXPECT_EQ(boundaryTaken({input("a", "xabcdefABCDEFx")}), kOtherBoundary);
  EXPECT_EQ(boundaryTaken({input("a", "abcdefabcdef")}), kBoundary);
  EXPECT_EQ(boundaryTaken({input("a", "abcdefABCDE")}), kBoundary);
}

// How many boundaries are drawn for an input named "a" when `first` comes first.
std::size_t drawnAfter(std::string_view first, std::string_view content) {
  Boundaries boundaries({std::string(first), std::string(kOtherBoundary)});
  kvl::URLRequest request("a");
  EXPECT_EQ(writeMultipartBody(request, {input("a", content)}, boundaries.source()), std::nullopt);
  return boundaries.drawn();
}

// True boundaries have no hyphens and line feeds; these show which bytes are searched.
TEST(MultipartBoundaryTest, IsSearchedFromTheFirstByteOfThePartToTheLast) {
  EXPECT_EQ(drawnAfter("Content-Disp", "x"), 2U);
  EXPECT_EQ(drawnAfter("\nContent-Dis", "x"), 1U);
  EXPECT_EQ(drawnAfter("23456789abcd", "123456789abcd"), 2U);
  EXPECT_EQ(drawnAfter("3456789abcd\n", "123456789abcd"), 1U);
}

// A part is what its head and its content are together.
TEST(MultipartBoundaryTest, OccursAlsoWhereHeadAndContentMeet) {
  EXPECT_EQ(drawnAfter("TF-8\n\nabcdef", "abcdef"), 2U);
}

// Across two parts there are always line feeds and hyphens.
TEST(MultipartBoundaryTest, DoesNotOccurAcrossPartsOrInItsOwnPlaces) {
  EXPECT_EQ(boundaryTaken({input("a", "abcdef"), input("b", "ABCDEF"), input("c", "-")}),
            kBoundary);
}

TEST(MultipartBoundaryTest, IsFoundAtBothEndsOfALargeContent) {
  const std::string filling(3 << 20, 'x');
  EXPECT_EQ(boundaryTaken({input("a", std::string(kBoundary) + filling)}), kOtherBoundary);
  EXPECT_EQ(boundaryTaken({input("a", filling + std::string(kBoundary))}), kOtherBoundary);
  EXPECT_EQ(boundaryTaken({input("a", filling)}), kBoundary);
}

TEST(MultipartBoundaryTest, ReplacesThoseThatOccurInEveryPlaceOfTheBody) {
  const std::string text(kBoundary);
  Boundaries boundaries({text, text, std::string(kOtherBoundary)});
  kvl::URLRequest replaced("a");
  kvl::URLRequest direct("a");
  const kvl::Array inputs{input("a", text), input("b", "x"), kvl::Dictionary{{"name", "c"}}};
  ASSERT_EQ(writeMultipartBody(replaced, inputs, boundaries.source()), std::nullopt);
  ASSERT_EQ(writeMultipartBody(direct, inputs, always(kOtherBoundary)), std::nullopt);
  EXPECT_EQ(replaced.body()->text(), direct.body()->text());
  EXPECT_EQ(boundaries.drawn(), 3U);
}

TEST(MultipartBoundaryTest, NinthMayBeTaken) {
  auto drawn = nineTimes(kBoundary, "unusedunused");
  drawn[8] = kOtherBoundary;
  Boundaries boundaries(drawn);
  kvl::URLRequest request("a");
  ASSERT_EQ(writeMultipartBody(request, {input("a", kBoundary)}, boundaries.source()),
            std::nullopt);
  EXPECT_EQ(boundaries.drawn(), 9U);
  EXPECT_TRUE(request.body()->text().starts_with("--0123456789xy\n"));
}

TEST(MultipartBoundaryTest, TenthIsDrawnButNeverTaken) {
  for (const auto last : {kOtherBoundary, kBoundary}) {
    Boundaries boundaries(nineTimes(kBoundary, last));
    auto request = filledRequest();
    EXPECT_EQ(writeMultipartBody(request, {input("a", kBoundary)}, boundaries.source()),
              extensionsError(400, {{"watchdog", "unable to derive unique boundary"}}));
    EXPECT_EQ(boundaries.drawn(), 10U);
    expectUnchanged(request);
  }
}

TEST(MultipartBoundaryTest, IsNotDrawnForInputsThatCannotBeSent) {
  Boundaries boundaries({});
  kvl::URLRequest request("a");
  EXPECT_TRUE(writeMultipartBody(request, {kvl::Dictionary{}}, boundaries.source()));
  EXPECT_EQ(writeMultipartBody(request, {}, boundaries.source()), std::nullopt);
}

TEST(RandomBoundaryTest, IsTwelveLettersAndDigits) {
  for (int i = 0; i < 100; ++i)
    EXPECT_THAT(KVLExtensions::randomBoundary(), testing::MatchesRegex("[a-zA-Z0-9]{12}"));
}

TEST(RandomBoundaryTest, IsAnotherOneEachTime) {
  EXPECT_NE(KVLExtensions::randomBoundary(), KVLExtensions::randomBoundary());
}

TEST(RandomBoundaryTest, DrawsEachByteValueForFourthOfTheCharactersInOrder) {
  std::uint8_t next = 0;
  const kvl::core::ByteSource counting = [&next] { return next++; };
  std::string drawn;
  while (drawn.size() < 60) drawn += kvl::encoding::drawBoundary(counting);
  EXPECT_EQ(drawn, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ01234567");
}

TEST(RandomBoundaryTest, DrawsBytesOfTheBiasedTailAgain) {
  std::vector<std::uint8_t> bytes = {255, 248, 247};
  for (std::uint8_t byte = 0; byte < 11; ++byte) bytes.push_back(byte);
  std::size_t used = 0;
  const auto boundary = kvl::encoding::drawBoundary([&] { return bytes.at(used++); });
  EXPECT_EQ(boundary, "9abcdefghijk");
  EXPECT_EQ(used, bytes.size());
}

// A generator with a fixed seed: the figures are the same on every run. The limit is five standard
// deviations from the mean of a uniform source.
TEST(RandomBoundaryTest, HasEveryCharacterEquallyOftenAtEveryPlace) {
  constexpr int kBoundaries = 62 * 400;
  std::mt19937 generator(7);
  const kvl::core::ByteSource source = [&] { return static_cast<std::uint8_t>(generator() >> 24); };
  std::vector<std::map<char, int>> counts(kBoundary.size());
  for (int i = 0; i < kBoundaries; ++i) {
    const auto boundary = kvl::encoding::drawBoundary(source);
    for (std::size_t place = 0; place < boundary.size(); ++place) ++counts[place][boundary[place]];
  }
  for (const auto& place : counts) {
    EXPECT_EQ(place.size(), 62U);
    for (const auto& [character, count] : place) EXPECT_NEAR(count, 400, 100) << character;
  }
}

}  // namespace
