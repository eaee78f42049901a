#include "tools/kvlocal/EventFeed.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kvlocal {
namespace {

using std::chrono::steady_clock;
using Lines = std::vector<std::string>;

std::vector<std::shared_ptr<KVLEvent>> batch(const Lines& names) {
  std::vector<std::shared_ptr<KVLEvent>> events;
  for (const std::string& name : names) {
    events.push_back(std::make_shared<KVLEvent>());
    events.back()->setEvent(name);
  }
  return events;
}

class EventFeedTest : public testing::Test {
 protected:
  // Fills the feed, so that whoever adds must wait.
  void fill() { feed->add(batch({std::string(EventFeed::kMostWaitingBytes, 'f')})); }

  // Takes what there is, and gives up when nothing comes for very long.
  Lines takeSome() { return feed->take(steady_clock::now() + std::chrono::seconds(20)); }

  // Adds on a thread of its own and returns when the events have come to the feed.
  std::jthread addBeside(const std::string& name) {
    const auto before = formatted.load();
    std::jthread thread([this, name] {
      feed->add(batch({name}));
      ++added;
    });
    while (formatted == before) std::this_thread::yield();
    return thread;
  }

  const std::shared_ptr<Rendezvous> rendezvous = std::make_shared<Rendezvous>();
  std::atomic<int> formatted = 0;
  std::atomic<int> added = 0;
  const std::shared_ptr<EventFeed> feed =
      std::make_shared<EventFeed>(rendezvous, [this](const KVLEvent& event) {
        ++formatted;
        return plainEventLine(event);
      });
};

TEST_F(EventFeedTest, GivesLinesInTheOrderOfTheEvents) {
  feed->add(batch({"a", "b"}));
  feed->add(batch({"c"}));
  EXPECT_EQ(feed->take({}), (Lines{"a\n", "b\n", "c\n"}));
}

TEST_F(EventFeedTest, KnowsWhetherAnyEventHasCome) {
  EXPECT_FALSE(feed->hasReceived());
  feed->add(batch({"a"}));
  EXPECT_TRUE(feed->hasReceived());
  EXPECT_EQ(takeSome(), Lines{"a\n"});
  EXPECT_TRUE(feed->hasReceived());
}

TEST_F(EventFeedTest, WaitsForTheFirstLine) {
  const auto thread = addBeside("late");
  EXPECT_EQ(feed->take({}), Lines{"late\n"});
}

TEST_F(EventFeedTest, GivesNothingAfterTheLimitEvenIfLinesWait) {
  feed->add(batch({"a"}));
  EXPECT_TRUE(feed->take(steady_clock::now()).empty());
}

TEST_F(EventFeedTest, GivesNothingAfterAnInterruptEvenIfLinesWait) {
  feed->add(batch({"a"}));
  rendezvous->interrupt();
  EXPECT_TRUE(feed->take({}).empty());
}

TEST_F(EventFeedTest, GivesNothingWhenNothingComesInTime) {
  EXPECT_TRUE(feed->take(steady_clock::now() + std::chrono::milliseconds(20)).empty());
}

TEST_F(EventFeedTest, HoldsOneMoreBatchThanTheLimitAtMost) {
  const std::string half(EventFeed::kMostWaitingBytes / 2, 'h');
  std::jthread adding([&] {
    for (int i = 0; i < 50; ++i) feed->add(batch({half}));
    feed->add(batch({"end"}));
  });
  Lines lines = takeSome();
  for (; !lines.empty() && lines.back() != "end\n"; lines = takeSome()) EXPECT_LE(lines.size(), 2);
  feed->close();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "end\n");
}

class EventFeedEndTest : public EventFeedTest, public testing::WithParamInterface<bool> {
 protected:
  void end() { GetParam() ? feed->close() : static_cast<void>(rendezvous->interrupt()); }
};

TEST_P(EventFeedEndTest, ReleasesWhoeverWaits) {
  fill();
  auto first = addBeside("a");
  auto second = addBeside("b");
  end();
  first.join();
  second.join();
  EXPECT_TRUE(feed->take({}).empty());
}

TEST_P(EventFeedEndTest, LetsNobodyWaitFromThenOn) {
  fill();
  end();
  feed->add(batch({"a"}));
  feed->add(batch({"b"}));
  EXPECT_TRUE(feed->take({}).empty());
}

INSTANTIATE_TEST_SUITE_P(ClosedOrInterrupted, EventFeedEndTest, testing::Bool());

}  // namespace
}  // namespace kvlocal
