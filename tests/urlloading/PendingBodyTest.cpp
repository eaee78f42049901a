#include "platform/urlloading/PendingBody.h"

#include <gtest/gtest.h>

#include <string>

namespace kvl::urlloading {
namespace {

using namespace std::chrono_literals;
using Source = PendingBody::Source;

constexpr SteadyTime kStart{1h};

// A stream whose time is told.
class Stream {
 public:
  explicit Stream(PendingBody::Kind kind = PendingBody::Kind::events) : body_(kind) {}

  void arrive(std::string_view bytes) { body_.append(bytes, now_); }
  void pass(std::chrono::milliseconds time) { now_ += time; }
  // The chunk that goes after a pass of reading.
  std::string chunk(Source source) {
    const Bytes bytes = body_.take(body_.due(source, now_));
    return {bytes.begin(), bytes.end()};
  }
  [[nodiscard]] SteadyTime latest() const { return body_.latest(); }
  [[nodiscard]] SteadyTime now() const { return now_; }

 private:
  PendingBody body_;
  SteadyTime now_ = kStart;
};

TEST(PendingBodyTest, PlainBodiesGoAtOnce) {
  Stream stream(PendingBody::Kind::plain);
  stream.arrive("no line");
  EXPECT_EQ(stream.latest(), SteadyTime::max());
  EXPECT_EQ(stream.chunk(Source::flowing), "no line");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
}

TEST(PendingBodyTest, WholeEventsGoOnceThereIsNoMoreToRead) {
  Stream stream;
  stream.arrive("event: a\n\n");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("event: b\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\nevent: b\n\n");
}

TEST(PendingBodyTest, TheRestOfAnEventIsWaitedForOnlyAMoment) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  EXPECT_EQ(stream.latest(), stream.now() + PendingBody::kSettlingTime);
  stream.pass(PendingBody::kSettlingTime - 1ms);
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.pass(1ms);
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n");
  EXPECT_EQ(stream.latest(), SteadyTime::max());
}

TEST(PendingBodyTest, WholeEventsDoNotWaitForTheRestOfTheNext) {
  Stream stream;
  stream.arrive("event: a\n\nevent: b\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\n");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: b\n\n");
}

TEST(PendingBodyTest, TheRestThatComesInTimeMakesTheEventWhole) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.pass(PendingBody::kSettlingTime - 1ms);
  stream.arrive("data: x");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.pass(PendingBody::kSettlingTime - 1ms);
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\ndata: x\n\n");
}

TEST(PendingBodyTest, AThreadThatWasKeptFromRunningSplitsNothing) {
  Stream stream;
  stream.arrive("event: a\n");
  stream.pass(10 * PendingBody::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\n");
}

TEST(PendingBodyTest, ASourceThatPromisesMoreAndBringsNothingHoldsNothingBack) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.pass(PendingBody::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::flowing), "event: a\n");
}

TEST(PendingBodyTest, AChunkThatIsLargeEnoughEndsAfterAnEmptyLine) {
  Stream stream;
  const std::string events = std::string(PendingBody::kChunkSize / 2, 'x') + "\n\n";
  stream.arrive(events);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive(events + "event: cut");
  EXPECT_EQ(stream.chunk(Source::flowing), events + events);
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: cut\n\n");
}

TEST(PendingBodyTest, AChunkThatHasGrownForLongEndsAfterAnEmptyLine) {
  Stream stream;
  stream.arrive("event: a\n\neve");
  stream.pass(PendingBody::kGrowingTime - 1ms);
  stream.arrive("nt");
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.pass(1ms);
  stream.arrive(": b");
  EXPECT_EQ(stream.chunk(Source::flowing), "event: a\n\n");
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: b\n\n");
}

TEST(PendingBodyTest, AnEventThatIsLargerThanAChunkStaysWhole) {
  Stream stream;
  const std::string data = "event: a\ndata: " + std::string(PendingBody::kChunkSize, 'x');
  stream.arrive(data);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.pass(PendingBody::kGrowingTime);
  stream.arrive(data);
  EXPECT_EQ(stream.chunk(Source::flowing), "");
  stream.arrive("\n\n");
  EXPECT_EQ(stream.chunk(Source::quiet), data + data + "\n\n");
}

TEST(PendingBodyTest, NothingGrowsWithoutEnd) {
  Stream stream;
  const std::string megabyte(1 << 20, 'x');
  std::size_t arrived = 0;
  while (stream.chunk(Source::flowing).empty()) {
    ASSERT_LE(arrived, PendingBody::kLongestEvent);
    stream.arrive(megabyte);
    arrived += megabyte.size();
  }
  EXPECT_EQ(arrived, PendingBody::kLongestEvent);
}

TEST(PendingBodyTest, WhileTheDelegateIsBehindOnlyWholeEventsGo) {
  Stream stream;
  stream.arrive("event: a\n\nevent: b\n");
  EXPECT_EQ(stream.chunk(Source::held), "event: a\n\n");
  stream.pass(1h);
  EXPECT_EQ(stream.chunk(Source::held), "");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: b\n\n");
}

TEST(PendingBodyTest, FindsEmptyLinesAcrossArrivals) {
  Stream stream;
  stream.arrive("event: a\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n\n");
}

TEST(PendingBodyTest, FindsAnEmptyLineThatBeginsAChunk) {
  Stream stream;
  stream.arrive("event: a\n");
  stream.pass(PendingBody::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\n");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "\n");
}

TEST(PendingBodyTest, ALineEndThatBeginsAChunkInsideALineIsNone) {
  Stream stream;
  stream.arrive("event: a");
  stream.pass(PendingBody::kSettlingTime);
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a");
  stream.arrive("\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "");
}

TEST(PendingBodyTest, ALoneCarriageReturnCountsAsAnEmptyLine) {
  Stream stream;
  stream.arrive("event: a\r\n\r\n");
  EXPECT_EQ(stream.chunk(Source::quiet), "event: a\r\n\r\n");
}

TEST(PendingBodyTest, ALongStreamWithoutLineEndsIsLookedAtOnce) {
  // Minutes, if all of it were looked at again and again; the benchmark has the numbers.
  Stream stream;
  std::size_t sent = 0;
  for (std::size_t i = 0; i < PendingBody::kLongestEvent / 1000; ++i) {
    stream.arrive(std::string(1000, 'x'));
    sent += stream.chunk(Source::flowing).size();
  }
  EXPECT_EQ(sent, 0U);
}

}  // namespace
}  // namespace kvl::urlloading
