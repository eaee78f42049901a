#include "platform/core/Random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace {

using kvl::core::kByteValues;
using kvl::core::StrongRandom;
using kvl::core::uniformDraw;

// Gives its bytes in order and counts them.
class Script {
 public:
  explicit Script(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] kvl::core::ByteSource source() {
    return [this] { return bytes_.at(used_++); };
  }
  [[nodiscard]] std::size_t used() const { return used_; }
  [[nodiscard]] bool exhausted() const { return used_ == bytes_.size(); }

 private:
  const std::vector<std::uint8_t> bytes_;
  std::size_t used_ = 0;
};

// How often each number comes when every byte value is drawn once.
std::map<unsigned, unsigned> countsOverAllBytes(unsigned bound) {
  const unsigned runs = kByteValues / bound;
  std::vector<std::uint8_t> bytes;
  // The bytes that are drawn again stand first, so that a draw follows them.
  for (unsigned byte = kByteValues; byte > 0; --byte)
    bytes.push_back(static_cast<std::uint8_t>(byte - 1));
  Script script(bytes);
  std::map<unsigned, unsigned> counts;
  for (unsigned draw = 0; draw < runs * bound; ++draw)
    ++counts[uniformDraw(bound, script.source())];
  EXPECT_TRUE(script.exhausted()) << bound;
  return counts;
}

TEST(UniformDrawTest, GivesEveryNumberEquallyOftenForEveryBound) {
  for (unsigned bound = 1; bound <= kByteValues; ++bound) {
    const auto counts = countsOverAllBytes(bound);
    EXPECT_EQ(counts.size(), bound);
    for (const auto& [number, count] : counts) {
      ASSERT_LT(number, bound);
      ASSERT_EQ(count, kByteValues / bound) << number << " of " << bound;
    }
  }
}

TEST(UniformDrawTest, DrawsBytesOfTheBiasedTailAgain) {
  Script script({248, 255, 251, 247});
  EXPECT_EQ(uniformDraw(62, script.source()), 61U);
  EXPECT_EQ(script.used(), 4U);
}

TEST(UniformDrawTest, TakesTheFirstByteThatIsNotInTheTail) {
  Script script({0, 1, 2});
  EXPECT_EQ(uniformDraw(62, script.source()), 0U);
  EXPECT_EQ(script.used(), 1U);
}

TEST(UniformDrawTest, HasNoTailWhenTheBoundDividesTheByteValues) {
  Script script({255, 255});
  EXPECT_EQ(uniformDraw(64, script.source()), 63U);
  EXPECT_EQ(uniformDraw(256, script.source()), 255U);
}

// A generator with a fixed seed, so that the figure is the same on every run; 117.6 is the value
// that one in a hundred thousand uniform sources would exceed with 61 degrees of freedom.
TEST(UniformDrawTest, PassesAChiSquareTestOnAFixedSequence) {
  constexpr unsigned kBound = 62;
  constexpr double kExpected = 2000;
  std::mt19937 generator(20240501);
  const kvl::core::ByteSource source = [&] { return static_cast<std::uint8_t>(generator() >> 24); };
  std::array<double, kBound> counts{};
  for (int draw = 0; draw < static_cast<int>(kBound * kExpected); ++draw)
    ++counts[uniformDraw(kBound, source)];
  double sum = 0;
  for (const double count : counts) sum += (count - kExpected) * (count - kExpected) / kExpected;
  EXPECT_LT(sum, 117.6);
}

TEST(StrongRandomTest, GivesBytesBeyondOneFilling) {
  StrongRandom random;
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < 4096; ++i) bytes.push_back(random());
  // 4096 bytes in which a value is missing have odds of one in 36,000; half the values missing
  // never happens.
  EXPECT_GT(std::set<std::uint8_t>(bytes.begin(), bytes.end()).size(), kByteValues / 2);
}

TEST(StrongRandomTest, CopiesGiveBytesOfTheirOwn) {
  StrongRandom random;
  static_cast<void>(random());
  StrongRandom copy = random;
  std::array<std::uint8_t, 24> original{};
  std::array<std::uint8_t, 24> copied{};
  std::ranges::generate(original, std::ref(random));
  std::ranges::generate(copied, std::ref(copy));
  EXPECT_NE(original, copied);
}

}  // namespace
