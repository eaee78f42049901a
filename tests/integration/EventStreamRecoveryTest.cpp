// Whatever ends the stream, it goes on after the last event.
#include "tests/integration/EventStreamFixture.h"
#include "tests/support/WaitUntil.h"

#include <atomic>
#include <thread>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

constexpr auto kNetworkError = "event stream closed with unexpected network error: ";

class EventStreamRecoveryTest : public EventStreamFixture {
 protected:
  void SetUp() override { establishOver(Route::direct); }
};

TEST_F(EventStreamRecoveryTest, StreamThatTheServiceClosesComesBackAfterASecond) {
  follow("close=5");
  ASSERT_TRUE(recorder->waitForNumber(15));
  EXPECT_TRUE(isUnbroken(recorder->tally(), 15));
  const auto events = recorder->events();
  for (const std::size_t resumed : {5, 10}) {
    EXPECT_EQ(events[resumed].number, static_cast<std::int64_t>(resumed) + 1);
    EXPECT_GE(events[resumed].time - events[resumed - 1].time, 1s);
  }
  EXPECT_GE(states->count(KVLSessionStateDisconnected), 2U);
  EXPECT_EQ(log.count("event stream closed"), 0U);
}

TEST_F(EventStreamRecoveryTest, StreamThatBreaksInMidEventComesBack) {
  follow("close=5&then=reset");
  ASSERT_TRUE(recorder->waitForNumber(15));
  EXPECT_TRUE(isUnbroken(recorder->tally(), 15));
  EXPECT_GE(states->count(KVLSessionStateDisconnected), 2U);
  // All lines at once: another break may be logged meanwhile.
  auto lines = log.lines();
  std::erase_if(lines, [](const auto& line) { return !line.starts_with(kNetworkError); });
  EXPECT_GE(lines.size(), 2U);
  for (const auto& line : lines)
    EXPECT_TRUE(
        line.starts_with(std::string(kNetworkError) + "Error Domain=NSURLErrorDomain Code=-1005"))
        << line;
}

TEST_F(EventStreamRecoveryTest, ServiceThatIsKilledAndStartedAgainIsFollowedOn) {
  follow("interval=1");
  std::int64_t next = 100;
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(recorder->waitForNumber(next));
    stopService();
    startService();
    next = recorder->tally().last + 100;
  }
  ASSERT_TRUE(recorder->waitForNumber(next));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  EXPECT_GE(log.count(kNetworkError), 2U);
}

TEST_F(EventStreamRecoveryTest, ServiceThatIsKilledInAFloodIsFollowedOn) {
  follow("size=1000");
  ASSERT_TRUE(recorder->waitForNumber(1000));
  stopService();
  startService();
  ASSERT_TRUE(recorder->waitForNumber(recorder->tally().last + 10'000));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
}

class EventStreamRenewalTest : public EventStreamRecoveryTest {
 protected:
  // Gives the session a new identity and returns when all that belongs to it is in place.
  void renew() {
    const auto loader = session->session();
    const auto signature = session->signature();
    session->enqueueNotarisation();
    ASSERT_TRUE(waitUntil([&] { return session->session() != loader; }));
    EXPECT_NE(session->signature(), signature);
    // A request waits until the renewal is complete.
    EXPECT_EQ(get("status").status(), 200);
  }
};

TEST_F(EventStreamRenewalTest, RelativeStreamMovesToTheNewIdentity) {
  follow("interval=1");
  ASSERT_TRUE(recorder->waitForNumber(20));
  for (std::size_t round = 1; round <= 5; ++round) {
    const auto task = session->eventStream()->task();
    renew();
    EXPECT_NE(session->eventStream()->task(), task);
    EXPECT_EQ(streamsOpened(), round + 1);
    ASSERT_TRUE(recorder->waitForNumber(recorder->tally().last + 20));
  }
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  EXPECT_EQ(states->count(KVLSessionStateDisconnected), 0U);
}

// The HTTPS session objects before and after a renewal deliver on queues of their own; a host that
// is slow with the old one's events still gets them first.
TEST_F(EventStreamRenewalTest, SlowHostGetsAFloodInOrderAcrossRenewals) {
  std::atomic<int> running = 0;
  std::atomic<int> overlaps = 0;
  const ScopedHook slow(recorder, [&](KVLSession&, const Tally&) {
    if (++running > 1) ++overlaps;
    std::this_thread::sleep_for(20ms);
    --running;
  });
  follow("size=1000");
  for (int round = 0; round < 5; ++round) {
    ASSERT_TRUE(recorder->waitForNumber(recorder->tally().last + 100));
    renew();
  }
  ASSERT_TRUE(recorder->waitForNumber(recorder->tally().last + 100));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  EXPECT_EQ(overlaps, 0);
}

TEST_F(EventStreamRenewalTest, AbsoluteStreamIsLeftAlone) {
  session->setEventStreamSource("https://127.0.0.1:" + servicePort() + "/" + source("interval=1"));
  ASSERT_TRUE(recorder->waitForNumber(20));
  const auto task = session->eventStream()->task();
  for (int round = 0; round < 3; ++round) {
    renew();
    EXPECT_EQ(session->eventStream()->task(), task);
    ASSERT_TRUE(recorder->waitForNumber(recorder->tally().last + 20));
  }
  EXPECT_EQ(streamsOpened(), 1U);
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
}

}  // namespace
