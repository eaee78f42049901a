// The stream is opened again while the session stays as it is.
#include "platform/environment/Environment.h"
#include "tests/integration/EventStreamFixture.h"
#include "tests/support/WaitUntil.h"

#include <algorithm>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

class EventStreamReopeningTest : public EventStreamFixture {
 protected:
  void SetUp() override {
    establishOver(Route::direct);
    ASSERT_TRUE(log.waitFor("no event stream source is set", 1, kPatience));
    log.clear();
  }

  // From now on.
  void setLongestSilence(std::chrono::nanoseconds silence) {
    auto environment = std::make_shared<kvl::Environment>();
    environment->limits.eventStreamSilence = silence;
    session->setEventStream(std::make_shared<KVLEventStreamState>(environment));
  }

  [[nodiscard]] static bool completes(const kvl::DataTask& task) {
    return waitUntil([&] { return task.state() == kvl::DataTask::State::completed; });
  }

  // Nothing has been logged about the stream but its openings, and the session stayed as it was.
  void expectNothingElseHappened() {
    for (const auto& line : log.lines()) {
      if (line.find("event") != std::string::npos) EXPECT_TRUE(line.starts_with(kOpening)) << line;
    }
    EXPECT_EQ(states->count(KVLSessionStateEstablished), 1U);
    EXPECT_EQ(states->count(KVLSessionStateDisconnected), 0U);
  }
};

TEST_F(EventStreamReopeningTest, SilentStreamIsOpenedAgainAfterTheLastEvent) {
  setLongestSilence(1s);
  follow("close=3&then=silence");
  EXPECT_TRUE(recorder->waitForNumber(12));
  EXPECT_TRUE(isUnbroken(recorder->tally(), recorder->tally().last));
  EXPECT_GE(streamsOpened(), 4U);
  expectNothingElseHappened();
}

TEST_F(EventStreamReopeningTest, StreamThatStaysSilentKeepsItsPlace) {
  setLongestSilence(200ms);
  follow("last=3&then=silence");
  EXPECT_TRUE(log.waitFor(kOpening, 5, kPatience));
  EXPECT_TRUE(isUnbroken(recorder->tally(), 3));
  expectNothingElseHappened();
}

TEST_F(EventStreamReopeningTest, CancelledStreamStaysClosed) {
  follow("interval=1");
  ASSERT_TRUE(recorder->waitForNumber(10));
  const auto task = session->eventStream()->task();
  session->eventStream()->cancel();
  ASSERT_TRUE(completes(*task));
  // Comes after the completion on the same serial queue.
  EXPECT_EQ(get("status").status(), 200);
  EXPECT_EQ(session->eventStream()->task(), nullptr);
  EXPECT_EQ(streamsOpened(), 1U);
  expectNothingElseHappened();
  session->eventStream()->streamFromURL(source("interval=1"), *session);
  EXPECT_TRUE(recorder->waitForNumber(recorder->tally().last + 10));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
}

TEST_F(EventStreamReopeningTest, StreamOfAnInvalidatedObjectComesBackWithTheNextIdentity) {
  follow("interval=1");
  ASSERT_TRUE(recorder->waitForNumber(20));
  session->session()->invalidateAndCancel();
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished, 2));
  EXPECT_TRUE(recorder->waitForNumber(recorder->tally().last + 20));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  EXPECT_EQ(streamsOpened(), 2U);
}

// Somebody else cancels the task.
TEST_F(EventStreamReopeningTest, StreamWhoseTaskIsCancelledIsOpenedAgain) {
  follow("interval=1");
  for (std::int64_t round = 1; round <= 5; ++round) {
    ASSERT_TRUE(recorder->waitForNumber(round * 20));
    const auto task = session->eventStream()->task();
    task->cancel();
    ASSERT_TRUE(completes(*task));
  }
  EXPECT_TRUE(recorder->waitForNumber(recorder->tally().last + 10));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  EXPECT_EQ(streamsOpened(), 6U);
  expectNothingElseHappened();
}

TEST_F(EventStreamReopeningTest, OtherSourceGoesOnAfterTheLastEvent) {
  const std::vector<std::string> names{"first", "second", "third"};
  for (const auto& name : names) {
    const auto next = recorder->tally().last + 50;
    follow("interval=1&name=" + name);
    ASSERT_TRUE(recorder->waitForNumber(next));
  }
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  const auto events = recorder->events();
  EXPECT_TRUE(std::ranges::is_sorted(events, {}, &SeenEvent::name));
  EXPECT_EQ(events.back().name, "third");
  EXPECT_EQ(streamsOpened(), 3U);
  expectNothingElseHappened();
}

// At full speed most of what is under way is thrown away, and comes again.
TEST_F(EventStreamReopeningTest, SourceThatChangesInAFloodLosesNothing) {
  for (int round = 0; round < 20; ++round) {
    const auto next = recorder->tally().last + 100;
    follow("size=1000&close=" + std::to_string(1'000'000 + round));
    ASSERT_TRUE(recorder->waitForNumber(next));
  }
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  expectNothingElseHappened();
}

}  // namespace
