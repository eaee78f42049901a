// The parser gives what the reference gives, whatever the bytes and however they are cut.
#include "tests/eventstream/ParserComparison.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

namespace {

using kvltest::ParserComparison;

constexpr int kStreams = 20'000;

class RandomStream {
 public:
  explicit RandomStream(std::uint32_t seed) : random_(seed) {}

  [[nodiscard]] std::string text() {
    std::string text;
    for (auto pieces = below(40); pieces > 0; --pieces) text += piece();
    return text;
  }

  // Pieces of the text that make it up in order.
  [[nodiscard]] std::vector<std::string> cut(const std::string& text) {
    std::vector<std::string> chunks;
    const std::size_t longest = 1 + below(below(4) == 0 ? 400 : 40);
    for (std::size_t begin = 0; begin < text.size();) {
      chunks.push_back(text.substr(begin, 1 + below(longest)));
      begin += chunks.back().size();
    }
    return chunks;
  }

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }

  std::string piece() {
    static const std::array<std::string, 30> pieces = {
        "event",  "data",       "id",           "retry",      ":",
        ":",      ": ",         "\n",           "\n",         "\n\n",
        "\n\n",   "event: a\n", "id: 1\n",      "data: x\n",  "event:\tb\n\n",
        "\r\n",   " ",          "\t",           "\u00a0",     "\u2003",
        "\u3000", "\u00e9",     "\u65e5",       "\U0001f600", "\xff",
        "\xc3",   "\xe2\x80",   "\xed\xa0\x80", ": event\n",  "event: e\ndata: d\nid: \n\n"};
    switch (below(12)) {
      case 0:
        return {static_cast<char>(below(256))};
      case 1:
        return std::string(below(200), 'y');
      default:
        return pieces[below(pieces.size())];
    }
  }

  std::mt19937 random_;
};

TEST(EventStreamDifferentialTest, RandomStreamsGiveWhatTheReferenceGives) {
  const kvltest::LogCapture log;
  std::size_t malformed = 0;
  for (std::uint32_t seed = 0; seed < kStreams; ++seed) {
    RandomStream random(seed);
    ParserComparison parsers;
    const std::string text = random.text();
    for (const auto& chunk : random.cut(text)) {
      const auto difference = parsers.read(chunk);
      ASSERT_EQ(difference, "") << "seed " << seed << ", chunk " << testing::PrintToString(chunk);
    }
    malformed += parsers.malformedLines().size();
  }
  EXPECT_GT(malformed, 0U);
  EXPECT_EQ(log.lines().size(), malformed);
}

// The memory of carried lines is used again then.
TEST(EventStreamDifferentialTest, StreamsWhoseCarriedLinesNobodyLooksAtGiveTheSame) {
  const kvltest::LogCapture log;
  for (std::uint32_t seed = 0; seed < kStreams; ++seed) {
    RandomStream random(seed);
    ParserComparison parsers(seed % 3 == 0 ? 300 : 100'000);
    parsers.lookAway();
    const std::string text = random.text();
    for (const auto& chunk : random.cut(text)) {
      const auto difference = parsers.read(chunk);
      ASSERT_EQ(difference, "") << "seed " << seed << ", chunk " << testing::PrintToString(chunk);
      if (seed % 5 == 0 && chunk.size() % 4 == 0) ASSERT_EQ(parsers.differenceInData(), "");
    }
    ASSERT_EQ(text.empty() ? "" : parsers.differenceInData(), "") << "seed " << seed;
  }
}

TEST(EventStreamDifferentialTest, LinesThatAreTooLongAreGivenUpHoweverTheyAreCut) {
  const kvltest::LogCapture log;
  for (std::uint32_t seed = 0; seed < kStreams; ++seed) {
    RandomStream random(seed);
    ParserComparison parsers(seed % 40);
    const std::string text = random.text();
    for (const auto& chunk : random.cut(text)) {
      const auto difference = parsers.read(chunk);
      ASSERT_EQ(difference, "") << "seed " << seed << ", chunk " << testing::PrintToString(chunk);
    }
  }
  EXPECT_GT(log.count("ignoring event-source line of more than"), 0U);
}

// The log shows control characters in a form of its own.
std::vector<std::string> loggedFor(const std::vector<std::string>& malformedLines) {
  const kvltest::LogCapture log;
  for (const auto& line : malformedLines)
    kvl::log("ignoring malformed event-source line: %@", line);
  return log.lines();
}

TEST(EventStreamDifferentialTest, MalformedLinesAreLoggedAlike) {
  for (std::uint32_t seed = 0; seed < 500; ++seed) {
    const kvltest::LogCapture log;
    RandomStream random(seed);
    ParserComparison parsers;
    const std::string text = random.text();
    for (const auto& chunk : random.cut(text)) ASSERT_EQ(parsers.read(chunk), "") << seed;
    EXPECT_EQ(log.lines(), loggedFor(parsers.malformedLines())) << seed;
  }
}

}  // namespace
