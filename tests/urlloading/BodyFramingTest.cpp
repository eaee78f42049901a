#include "platform/urlloading/BodyFraming.h"
#include "tests/support/FakeURLSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace kvl::urlloading {
namespace {

using namespace std::chrono_literals;
using Source = BodyFraming::Source;
using Time = BodyFraming::Time;
using ::testing::ElementsAre;

constexpr Time kStart{1h};

std::string take(PendingBody& body, std::size_t count) {
  const Bytes bytes = body.take(count);
  return {bytes.begin(), bytes.end()};
}

// Cuts two bytes at a time, and notes what it is told.
class PairFraming final : public BodyFraming {
 public:
  explicit PairFraming(std::vector<std::string>& notes) : notes_(notes) {}

  void arrived(std::string_view pending, std::size_t from, Time now) override {
    notes_.push_back(std::string(pending.substr(0, from)) + "+" +
                     std::string(pending.substr(from)));
    lastArrival_ = now;
  }
  std::size_t due(std::size_t pending, Source source, Time) override {
    return pending >= 2 || source == Source::flowing ? std::min<std::size_t>(pending, 2) : 0;
  }
  void taken(std::string_view pending, std::size_t count) override {
    notes_.push_back(std::string(pending.substr(0, count)) + "-" +
                     std::string(pending.substr(count)));
  }
  Time latest() const override { return lastArrival_ + 1s; }

 private:
  std::vector<std::string>& notes_;
  Time lastArrival_;
};

TEST(PendingBodyTest, PlainBodiesGoAtOnce) {
  PendingBody body(nullptr);
  body.append("no line", kStart);
  EXPECT_EQ(body.latest(), Time::max());
  EXPECT_FALSE(body.isCollecting());
  EXPECT_EQ(take(body, body.due(Source::flowing, kStart)), "no line");
  EXPECT_EQ(take(body, body.due(Source::quiet, kStart)), "");
}

// However they came: what waits for a slow receiver is counted by its size.
TEST(PendingBodyTest, PlainPiecesTakeNoMoreMemoryThanTheirSize) {
  PendingBody body(nullptr);
  for (const std::size_t size : {std::size_t{3}, std::size_t{112} << 10, std::size_t{1} << 20}) {
    std::string sent;
    for (std::size_t i = 0; sent.size() < size; ++i) {
      const std::string some(std::min<std::size_t>(size - sent.size(), 16384), "abc"[i % 3]);
      body.append(some, kStart);
      sent += some;
    }
    const Bytes piece = body.take(size - 1);
    EXPECT_EQ(piece.capacity(), size - 1);
    EXPECT_TRUE(std::string(piece.begin(), piece.end()) == sent.substr(0, size - 1));
    EXPECT_EQ(take(body, body.size()), sent.substr(size - 1));
  }
}

TEST(PendingBodyTest, AnAnnouncedBodyGetsItsMemoryOnceAndNoMoreThanThat) {
  constexpr std::size_t kSize = 100'000;
  BodyMemory memory;
  PendingBody body(nullptr);
  body.expect(kSize, memory);
  body.append("a", kStart);
  EXPECT_EQ(body.capacity(), kSize);
  body.append(std::string(kSize - 1, 'b'), kStart);
  EXPECT_EQ(body.takeAll().capacity(), kSize);
}

TEST(PendingBodyTest, AnAnnouncementAloneGetsLittleMemory) {
  constexpr std::size_t kAhead = std::size_t{1} << 20;
  BodyMemory memory;
  PendingBody body(nullptr);
  body.expect(std::size_t{4} << 30, memory);
  EXPECT_EQ(body.capacity(), 0U);
  body.append("a", kStart);
  EXPECT_EQ(body.capacity(), kAhead);
  body.append(std::string(kAhead, 'b'), kStart);
  EXPECT_LE(body.capacity(), 2 * kAhead + 2);
}

TEST(PendingBodyTest, ABodyMayBeLongerThanAnnounced) {
  BodyMemory memory;
  PendingBody body(nullptr);
  body.expect(3, memory);
  body.append("a body", kStart);
  EXPECT_EQ(take(body, 6), "a body");
}

TEST(PendingBodyTest, PlainBodiesGoBeforeTheyGetLarge) {
  constexpr std::size_t kMost = std::size_t{256} << 10;
  PendingBody body(nullptr);
  body.append(std::string(kMost - 1, 'x'), kStart);
  EXPECT_FALSE(body.isFull());
  body.append("x", kStart);
  EXPECT_TRUE(body.isFull());
  EXPECT_EQ(take(body, kMost).size(), kMost);
  EXPECT_FALSE(body.isFull());
  std::vector<std::string> notes;
  PendingBody framed(std::make_unique<PairFraming>(notes));
  framed.append(std::string(kMost, 'x'), kStart);
  EXPECT_FALSE(framed.isFull());
}

TEST(PendingBodyTest, AllOfItIsTakenWhereItIs) {
  PendingBody body(nullptr);
  body.append("a body in one piece", kStart);
  const Bytes whole = body.takeAll();
  EXPECT_EQ(std::string(whole.begin(), whole.end()), "a body in one piece");
  EXPECT_TRUE(body.empty());
  body.append("x", kStart);
  EXPECT_EQ(take(body, 1), "x");
}

TEST(PendingBodyTest, TheFramingDecidesHowMuchGoes) {
  std::vector<std::string> notes;
  PendingBody body(std::make_unique<PairFraming>(notes));
  body.append("a", kStart);
  EXPECT_EQ(take(body, body.due(Source::quiet, kStart)), "");
  EXPECT_TRUE(body.isCollecting());
  body.append("bc", kStart);
  EXPECT_EQ(take(body, body.due(Source::quiet, kStart)), "ab");
  EXPECT_EQ(take(body, body.due(Source::flowing, kStart)), "c");
  EXPECT_FALSE(body.isCollecting());
  EXPECT_THAT(notes, ElementsAre("+a", "a+bc", "ab-c", "c-"));
}

TEST(PendingBodyTest, OnlyPendingBytesAreDueAtSomeTime) {
  std::vector<std::string> notes;
  PendingBody body(std::make_unique<PairFraming>(notes));
  EXPECT_EQ(body.latest(), Time::max());
  body.append("a", kStart);
  EXPECT_EQ(body.latest(), kStart + 1s);
  EXPECT_EQ(take(body, 1), "a");
  EXPECT_EQ(body.latest(), Time::max());
}

TEST(BodyFramingTest, ATaskOfAnotherKindHasNoUseForIt) {
  std::vector<std::string> notes;
  kvltest::FakeDataTask task(1, URLRequest("https://localhost/"), nullptr);
  setBodyFraming(task, std::make_unique<PairFraming>(notes));
  task.resume();
  EXPECT_EQ(task.state(), DataTask::State::running);
}

}  // namespace
}  // namespace kvl::urlloading
