// One stream of three events, cut at every place.
#include "tests/eventstream/ParserComparison.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace {

using kvl::eventstream::EventStreamParser;

constexpr std::array<std::string_view, 3> kEvents = {
    "event: first\ndata: \u00e9t\u00e9\nid: 1\n\n",
    ": a comment\nevent: second\nid: 2\n\n",
    "data: a:b\nid: 3\nretry: 5\nevent: third\n\n",
};
constexpr std::array<std::string_view, 3> kDescriptions = {
    "event:first,data:\u00e9t\u00e9,id:1",
    "event:second,data:(null),id:2",
    "event:third,data:a:b,id:3",
};

std::string stream() {
  std::string text;
  for (const auto event : kEvents) text += event;
  return text;
}

using Texts = std::vector<std::string>;

Texts descriptions(const std::vector<std::string_view>& chunks) {
  EventStreamParser state;
  Texts found;
  for (const auto chunk : chunks) {
    for (const auto& event : state.read(kvl::Data::fromText(chunk)))
      found.push_back(event->description());
  }
  return found;
}

// A stream cut at `split` gives the events before it, and those of a stream that begins with the
// line that is cut: lines survive the end of a chunk, fields do not.
Texts expectedFor(const std::string& text, std::size_t split) {
  Texts expected;
  std::size_t end = 0;
  for (std::size_t i = 0; i < kEvents.size(); ++i) {
    end += kEvents[i].size();
    if (end <= split) expected.emplace_back(kDescriptions[i]);
  }
  const auto lineEnd = split == 0 ? std::string::npos : text.rfind('\n', split - 1);
  kvltest::ReferenceParser reference;
  const auto line = lineEnd == std::string::npos ? 0 : lineEnd + 1;
  for (const auto& event : reference.read(std::string_view(text).substr(line)))
    expected.push_back(event.description());
  return expected;
}

TEST(EventStreamSplitTest, LinesSurviveASplitAndFieldsDoNot) {
  const std::string text = stream();
  for (std::size_t split = 0; split <= text.size(); ++split) {
    const std::string_view all = text;
    EXPECT_EQ(descriptions({all.substr(0, split), all.substr(split)}), expectedFor(text, split))
        << split;
  }
}

TEST(EventStreamSplitTest, SplitsBetweenEventsCostNothing) {
  const std::string text = stream();
  const Texts all(kDescriptions.begin(), kDescriptions.end());
  std::size_t split = 0;
  for (const auto event : kEvents) {
    EXPECT_EQ(expectedFor(text, split), all);
    split += event.size();
    EXPECT_EQ(expectedFor(text, split), all);
  }
}

TEST(EventStreamSplitTest, EverySplitInThreeGivesWhatTheReferenceGives) {
  const std::string text = stream();
  const std::string_view all = text;
  for (std::size_t first = 0; first <= text.size(); ++first) {
    for (std::size_t second = first; second <= text.size(); ++second) {
      kvltest::ParserComparison parsers;
      for (const auto chunk :
           {all.substr(0, first), all.substr(first, second - first), all.substr(second)})
        ASSERT_EQ(parsers.read(chunk), "") << first << ", " << second;
    }
  }
}

TEST(EventStreamSplitTest, ByteByByteOnlyLinesSurvive) {
  const std::string text = stream();
  std::vector<std::string_view> bytes;
  for (std::size_t i = 0; i < text.size(); ++i)
    bytes.push_back(std::string_view(text).substr(i, 1));
  EXPECT_EQ(descriptions(bytes), Texts());
}

}  // namespace
