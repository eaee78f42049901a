#include "eventstream/EventFraming.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

namespace kvl::eventstream {
namespace {

using namespace std::chrono_literals;
using Source = EventFraming::Source;
using Time = EventFraming::Time;

constexpr Time kStart{1h};

// A stream whose time is told.
class Stream {
 public:
  explicit Stream(std::size_t longestEvent = EventFraming::kLongestEvent)
      : body_(std::make_unique<EventFraming>(longestEvent)) {}

  void arrive(std::string_view bytes) { body_.append(bytes, now_); }
  void pass(std::chrono::milliseconds time) { now_ += time; }
  // The chunk that goes after a pass of reading.
  std::string chunk(Source source) { return take(body_.due(source, now_)); }
  std::string take(std::size_t count) {
    const Bytes bytes = body_.take(count);
    return {bytes.begin(), bytes.end()};
  }
  [[nodiscard]] Time latest() const { return body_.latest(); }
  [[nodiscard]] Time now() const { return now_; }

 private:
  urlloading::PendingBody body_;
  Time now_ = kStart;
};

TEST(EventFramingTest, WholeEventsGoOnceThereIsNoMoreToRead) {
  Stream stream;
  stream.arrive("event: a\n\n");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("event: b\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\nevent: b\n\n");
}

TEST(EventFramingTest, TheRestOfAnEventIsWaitedForOnlyAMoment) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  EXPECT_EQ(stream.latest(), stream.now() + EventFraming::kSettlingTime);
  stream.pass(EventFraming::kSettlingTime - 1ms);
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.pass(1ms);
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n");
  EXPECT_EQ(stream.latest(), Time::max());
}

TEST(EventFramingTest, WholeEventsDoNotWaitForTheRestOfTheNext) {
  Stream stream;
  stream.arrive("event: a\n\nevent: b\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\n");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: b\n\n");
}

TEST(EventFramingTest, TheRestThatComesInTimeMakesTheEventWhole) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.pass(EventFraming::kSettlingTime - 1ms);
  stream.arrive("data: x");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.pass(EventFraming::kSettlingTime - 1ms);
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\ndata: x\n\n");
}

TEST(EventFramingTest, AThreadThatWasKeptFromRunningSplitsNothing) {
  Stream stream;
  stream.arrive("event: a\n");
  stream.pass(10 * EventFraming::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\n");
}

TEST(EventFramingTest, ASourceThatPromisesMoreAndBringsNothingHoldsNothingBack) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.pass(EventFraming::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::flowing), "event: a\n");
}

TEST(EventFramingTest, AChunkThatIsLargeEnoughEndsAfterAnEmptyLine) {
  Stream stream;
  const std::string events = std::string(EventFraming::kChunkSize / 2, 'x') + "\n\n";
  stream.arrive(events);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive(events + "event: cut");
  EXPECT_EQ(stream.chunk(Source::flowing), events + events);
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: cut\n\n");
}

TEST(EventFramingTest, AChunkThatHasGrownForLongEndsAfterAnEmptyLine) {
  Stream stream;
  stream.arrive("event: a\n\neve");
  stream.pass(EventFraming::kGrowingTime - 1ms);
  stream.arrive("nt");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.pass(1ms);
  stream.arrive(": b");
  EXPECT_EQ(stream.chunk(Source::flowing), "event: a\n\n");
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: b\n\n");
}

TEST(EventFramingTest, AnEventThatIsLargerThanAChunkStaysWhole) {
  Stream stream;
  const std::string data = "event: a\ndata: " + std::string(EventFraming::kChunkSize, 'x');
  stream.arrive(data);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.pass(EventFraming::kGrowingTime);
  stream.arrive(data);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), data + data + "\n\n");
}

TEST(EventFramingTest, AChunkIsLargeEnoughAtItsSizeAndNotAByteBefore) {
  Stream stream;
  stream.arrive(std::string(EventFraming::kChunkSize - 3, 'x') + "\n\n");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("y");
  EXPECT_EQ(stream.chunk(Source::flowing).size(), EventFraming::kChunkSize - 1);
}

TEST(EventFramingTest, AnEventIsTooLongAtItsSizeAndNotAByteBefore) {
  Stream stream(10);
  stream.arrive("event: ab");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.arrive("c");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: abc");
}

TEST(EventFramingTest, WholeEventsGoBeforeOneThatIsTooLong) {
  Stream stream(10);
  stream.arrive("\n123456789");
  EXPECT_EQ(stream.chunk(Source::flowing), "\n");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("0");
  EXPECT_EQ(stream.chunk(Source::flowing), "1234567890");
}

TEST(EventFramingTest, EventsThatStayBehindAreKnownStill) {
  Stream stream;
  stream.arrive("event: a\n\nevent: b\n\nrest");
  EXPECT_EQ(stream.take(3), "eve");
  EXPECT_EQ(stream.chunk(Source::held), "nt: a\n\nevent: b\n\n");
}

TEST(EventFramingTest, NothingGrowsWithoutEnd) {
  Stream stream;
  const std::string megabyte(1 << 20, 'x');
  std::size_t arrived = 0;
  while (stream.chunk(Source::flowing).empty()) {
    ASSERT_LE(arrived, EventFraming::kLongestEvent);
    stream.arrive(megabyte);
    arrived += megabyte.size();
  }
  EXPECT_EQ(arrived, EventFraming::kLongestEvent);
}

TEST(EventFramingTest, WhileTheDelegateIsBehindOnlyWholeEventsGo) {
  Stream stream;
  stream.arrive("event: a\n\nevent: b\n");
  EXPECT_EQ(stream.chunk(Source::held), "event: a\n\n");
  stream.pass(1h);
  EXPECT_EQ(stream.chunk(Source::held), "");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: b\n\n");
}

TEST(EventFramingTest, FindsEmptyLinesAcrossArrivals) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\n");
}

TEST(EventFramingTest, FindsAnEmptyLineThatBeginsAChunk) {
  Stream stream;
  stream.arrive("event: a\n");
  stream.pass(EventFraming::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "\n");
}

TEST(EventFramingTest, ALineEndThatBeginsAChunkInsideALineIsNone) {
  Stream stream;
  stream.arrive("event: a");
  stream.pass(EventFraming::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
}

TEST(EventFramingTest, ALoneCarriageReturnCountsAsAnEmptyLine) {
  Stream stream;
  stream.arrive("event: a\r\n\r\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\r\n\r\n");
}

TEST(EventFramingTest, ALoneCarriageReturnThatBeginsAChunkCountsAsAnEmptyLine) {
  Stream stream;
  stream.arrive("event: a\r\n");
  stream.pass(EventFraming::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\r\n");
  stream.arrive("\r\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "\r\n");
  stream.arrive("\r");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
}

TEST(EventFramingTest, ALongStreamWithoutLineEndsIsLookedAtOnce) {
  // Minutes, if all of it were looked at again and again; the benchmark has the numbers.
  Stream stream;
  std::size_t sent = 0;
  for (std::size_t i = 0; i < EventFraming::kLongestEvent / 1000; ++i) {
    stream.arrive(std::string(1000, 'x'));
    sent += stream.chunk(Source::flowing).size();
  }
  EXPECT_EQ(sent, 0U);
}

}  // namespace
}  // namespace kvl::eventstream
