// What stands between a source and the loader's thread.
#include "platform/urlloading/BodyFeed.h"
#include "tests/urlloading/TextSource.h"

#include <local/platform/Semaphore.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kvl::testing {
namespace {

// Takes everything there is, and waits for it.
std::string drain(urlloading::BodyFeed& feed, Semaphore& ready, std::size_t room) {
  std::string all;
  std::vector<std::uint8_t> bytes(room);
  for (;;) {
    std::size_t count = 0;
    switch (feed.take(bytes, count)) {
      case urlloading::BodyFeed::State::ready:
        all.append(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
        break;
      case urlloading::BodyFeed::State::starved:
        ready.wait();
        break;
      case urlloading::BodyFeed::State::over:
        return all;
      case urlloading::BodyFeed::State::failed:
        return all + "(failed)";
    }
  }
}

class BodyFeedTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::shared_ptr<urlloading::BodyFeed> feedOf(
      const std::shared_ptr<TextSource>& source) {
    return std::make_shared<urlloading::BodyFeed>(source, [ready = ready] { ready->signal(); });
  }
  std::shared_ptr<Semaphore> ready = std::make_shared<Semaphore>(0);
};

TEST_F(BodyFeedTest, GivesAllInAnySteps) {
  for (const std::size_t room : {1U, 100U, 300'000U}) {
    for (const std::size_t step : {33U, 70'000U}) {
      for (const bool isSaid : {true, false}) {
        const auto source = std::make_shared<TextSource>(mixedText(room == 1 ? 2000 : 600'000));
        source->step = room == 1 ? 33 : step * 10;
        if (!isSaid) source->said.reset();
        EXPECT_EQ(drain(*feedOf(source), *ready, room), source->text);
      }
    }
  }
}

TEST_F(BodyFeedTest, ReadsNoMoreThanTwoBlocksAhead) {
  const auto source = std::make_shared<TextSource>(mixedText(3'000'000));
  Door second;
  source->onRead = [&](std::size_t given) {
    if (given > 0) second.open();
  };
  const auto feed = feedOf(source);
  std::uint8_t byte = 0;
  std::size_t count = 0;
  EXPECT_EQ(feed->take({&byte, 1}, count), urlloading::BodyFeed::State::starved);
  second.pass();
  while (source->given < (512 << 10)) std::this_thread::yield();
  // Nothing more is asked for until something is taken.
  EXPECT_EQ(feed->take({&byte, 1}, count), urlloading::BodyFeed::State::ready);
  EXPECT_EQ(source->reads, 2);
  const std::string rest = drain(*feed, *ready, 100'000);
  EXPECT_EQ(std::string(1, static_cast<char>(byte)) + rest, source->text);
}

TEST_F(BodyFeedTest, ARewindDuringAReadForgetsWhatThatGives) {
  const auto source = std::make_shared<TextSource>(mixedText(1'000'000));
  Door door;
  source->onRead = [&](std::size_t given) {
    if (given > 0) door.pass();
  };
  const auto feed = feedOf(source);
  std::vector<std::uint8_t> room(1000);
  std::size_t count = 0;
  EXPECT_EQ(feed->take(room, count), urlloading::BodyFeed::State::starved);
  ready->wait();
  EXPECT_EQ(feed->take(room, count), urlloading::BodyFeed::State::ready);
  while (source->callers == 0) std::this_thread::yield();
  EXPECT_TRUE(feed->hasBegun());
  feed->rewind();
  EXPECT_FALSE(feed->hasBegun());
  door.open();
  EXPECT_EQ(drain(*feed, *ready, 10'000), source->text);
  EXPECT_EQ(source->rewinds, 1);
}

TEST_F(BodyFeedTest, AnEmptySourceIsOverOnceItIsRewound) {
  const auto source = std::make_shared<TextSource>("");
  Door door;
  source->onRewind = [&] { door.pass(); };
  const auto feed = feedOf(source);
  feed->rewind();
  std::uint8_t byte = 0;
  std::size_t count = 0;
  EXPECT_EQ(feed->take({&byte, 1}, count), urlloading::BodyFeed::State::starved);
  door.open();
  ASSERT_TRUE(ready->waitFor(std::chrono::seconds(20))) << "nobody hears that there is nothing";
  EXPECT_EQ(drain(*feed, *ready, 1), "");
}

TEST_F(BodyFeedTest, TheNextOneBeginsAnewAfterTheCallsOfTheOneBefore) {
  const auto source = std::make_shared<TextSource>(mixedText(100'000));
  Door door;
  source->onRead = [&](std::size_t) { door.pass(); };
  const auto before = feedOf(source);
  std::vector<std::uint8_t> room(1000);
  std::size_t count = 0;
  EXPECT_EQ(before->take(room, count), urlloading::BodyFeed::State::starved);
  while (source->callers == 0) std::this_thread::yield();
  before->close();
  const auto after = feedOf(source);
  EXPECT_EQ(after->take(room, count), urlloading::BodyFeed::State::starved);
  door.open();
  EXPECT_EQ(drain(*after, *ready, 10'000), source->text);
  EXPECT_EQ(source->rewinds, 1);
}

// A host's prototype, of which it sends copies.
class CountedSource final : public BodySource {
 public:
  explicit CountedSource(int& rewinds) : rewinds_(&rewinds) {}
  std::optional<std::uint64_t> length() const override { return 4; }
  std::size_t read(std::span<std::uint8_t> room, std::optional<Error>*) override {
    std::fill_n(room.begin(), 4, std::uint8_t{'x'});
    return 4;
  }
  bool rewind() override {
    ++*rewinds_;
    return false;
  }

 private:
  int* rewinds_;
};

TEST_F(BodyFeedTest, ACopyThatNobodyHasUsedIsNotRewound) {
  int rewinds = 0;
  const CountedSource prototype(rewinds);
  for (int i = 0; i < 2; ++i) {
    const auto feed = std::make_shared<urlloading::BodyFeed>(
        std::make_shared<CountedSource>(prototype), [ready = ready] { ready->signal(); });
    EXPECT_EQ(drain(*feed, *ready, 100), "xxxx") << i;
  }
  EXPECT_EQ(rewinds, 0);
}

// The one before is not closed yet: its loader has not come to its cancellation.
TEST_F(BodyFeedTest, TheOneBeforeTakesNothingFromTheNext) {
  const auto source = std::make_shared<TextSource>(mixedText(3'000'000));
  const auto before = feedOf(source);
  std::vector<std::uint8_t> room(300 << 10);
  std::size_t count = 0;
  EXPECT_EQ(before->take(room, count), urlloading::BodyFeed::State::starved);
  ready->wait();
  while (source->given < (512 << 10)) std::this_thread::yield();
  const auto after = feedOf(source);
  EXPECT_EQ(after->take(room, count), urlloading::BodyFeed::State::starved);
  ready->wait();
  // Which makes room for another block.
  EXPECT_EQ(before->take(room, count), urlloading::BodyFeed::State::ready);
  const std::string all = drain(*after, *ready, 10'000);
  EXPECT_TRUE(all == source->text) << all.size();
  EXPECT_TRUE(drain(*before, *ready, 10'000).ends_with("(failed)"));
}

TEST_F(BodyFeedTest, AClosedOneAsksForNothingMore) {
  const auto source = std::make_shared<TextSource>(mixedText(3'000'000));
  const auto feed = feedOf(source);
  std::vector<std::uint8_t> room(1000);
  std::size_t count = 0;
  feed->close();
  EXPECT_EQ(feed->take(room, count), urlloading::BodyFeed::State::failed);
  EXPECT_EQ(source->reads, 0);
}

}  // namespace
}  // namespace kvl::testing
