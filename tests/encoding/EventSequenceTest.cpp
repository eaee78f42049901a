// A session's events, taken one after the other.
#include "tests/encoding/Coroutines.h"
#include "tests/encoding/FetchFixture.h"

#include <local/KVLEncodingAwaitEvents.h>

#include <optional>
#include <string>
#include <utility>

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;
using KVLEncoding::awaitable::EventLimits;
using KVLEncoding::awaitable::EventSequence;
namespace awaitable = KVLEncoding::awaitable;

// Takes events until there are no more.
kvl::Task<> takeAll(EventSequence& sequence, std::string& taken) {
  while (const auto event = co_await sequence.next()) taken += (*event)->event().value_or("?");
  taken += '.';
}

kvl::Task<> takeOne(EventSequence& sequence, std::string& taken) {
  const auto event = co_await sequence.next();
  taken += event ? (*event)->event().value_or("?") : ".";
}

class EventSequenceTest : public FetchFixture {
 protected:
  EventSequenceTest() { session->setEventStreamSource("events"); }

  [[nodiscard]] std::shared_ptr<FakeDataTask> streamTask() const {
    return std::dynamic_pointer_cast<FakeDataTask>(session->eventStream()->task());
  }
  // Events with these names, in one piece.
  void receive(std::string_view names, std::string_view data = "") {
    std::string bytes;
    for (const char name : names) {
      bytes += std::string("event: ") + name + "\ndata: " + std::string(data) + "\n\n";
    }
    session->didReceiveData(*loader, streamTask(), kvl::Data::fromText(bytes));
  }
  void take(EventSequence& sequence, int times) {
    for (int i = 0; i < times; ++i) {
      auto taking = takeOne(sequence, taken);
      taking.start();
      runPendingMainBlocks();
    }
  }
  [[nodiscard]] int holds() const { return streamTask()->suspensions; }

  std::string taken;
};

TEST_F(EventSequenceTest, GivesAllInOrder) {
  receive("x");
  auto sequence = awaitable::events(*session);
  receive("ab");
  auto taking = takeAll(sequence, taken);
  taking.start();
  runPendingMainBlocks();
  EXPECT_EQ(taken, "ab");
  onAnotherThread([&] { receive("cd"); });
  onAnotherThread([&] { receive("e"); });
  runPendingMainBlocks();
  EXPECT_EQ(taken, "abcde");
  EXPECT_EQ(recorder->batches.size(), 4U) << "the delegate has lost something";
}

TEST_F(EventSequenceTest, HoldsTheServiceAtTheLimitAndLetsGoBelowAQuarter) {
  auto sequence = awaitable::events(*session, {.most = 8});
  receive("abcdefg");
  EXPECT_EQ(holds(), 0);
  receive("hi");
  EXPECT_EQ(holds(), 1);
  receive("j");
  EXPECT_EQ(holds(), 1) << "held once more";
  take(sequence, 8);
  EXPECT_EQ(holds(), 1);
  take(sequence, 1);
  EXPECT_EQ(holds(), 0);
  take(sequence, 1);
  EXPECT_EQ(taken, "abcdefghij") << "something was lost while the stream was held";
}

TEST_F(EventSequenceTest, TextsCountAsWell) {
  auto sequence = awaitable::events(*session, {.bytes = 4000});
  const std::string text(1990, '.');
  receive("a", text);
  EXPECT_EQ(holds(), 0);
  receive("bc", text);
  EXPECT_EQ(holds(), 1);
  take(sequence, 2);
  EXPECT_EQ(holds(), 1);
  take(sequence, 1);
  EXPECT_EQ(holds(), 0);
}

TEST_F(EventSequenceTest, OneEventAboveTheLimitIsTaken) {
  auto sequence = awaitable::events(*session, {.most = 0, .bytes = 0});
  receive("a");
  EXPECT_EQ(holds(), 1);
  take(sequence, 1);
  EXPECT_EQ(taken, "a");
  EXPECT_EQ(holds(), 0);
}

TEST_F(EventSequenceTest, ARenewalKeepsTheHold) {
  auto sequence = awaitable::events(*session, {.most = 1});
  receive("a");
  const auto before = streamTask();
  session->enqueueNotarisation();
  establish();
  session->setEventStreamSource("others");
  EXPECT_NE(streamTask(), before);
  EXPECT_EQ(holds(), 1);
  take(sequence, 1);
  EXPECT_EQ(holds(), 0);
}

TEST_F(EventSequenceTest, TwoSequencesHaveTwoHolds) {
  auto slow = awaitable::events(*session, {.most = 1});
  auto quick = awaitable::events(*session, {.most = 1});
  receive("a");
  take(quick, 1);
  EXPECT_EQ(holds(), 1);
  take(slow, 1);
  EXPECT_EQ(holds(), 0);
  EXPECT_EQ(taken, "aa");
}

TEST_F(EventSequenceTest, DestroyedWhileItHoldsLetsGo) {
  {
    auto sequence = awaitable::events(*session, {.most = 1});
    receive("a");
    EXPECT_EQ(holds(), 1);
  }
  EXPECT_EQ(holds(), 0);
}

TEST_F(EventSequenceTest, ReplacedByAnotherItLetsGo) {
  auto sequence = awaitable::events(*session, {.most = 1});
  receive("a");
  sequence = awaitable::events(*session, {.most = 1});
  EXPECT_EQ(holds(), 0);
  receive("b");
  auto moved = std::move(sequence);
  take(moved, 1);
  EXPECT_EQ(taken, "b");
}

TEST_F(EventSequenceTest, DropsTheOldestWhenAsked) {
  auto sequence =
      awaitable::events(*session, {.most = 2, .overflow = EventLimits::Overflow::dropOldest});
  receive("abc");
  receive("d");
  EXPECT_EQ(holds(), 0);
  take(sequence, 2);
  EXPECT_EQ(taken, "cd");
  auto small =
      awaitable::events(*session, {.bytes = 10, .overflow = EventLimits::Overflow::dropOldest});
  receive("ef", "longer than ten bytes");
  take(small, 1);
  EXPECT_EQ(taken, "cdf");
}

TEST_F(EventSequenceTest, ClosingGivesNone) {
  auto sequence = awaitable::events(*session, {.most = 2});
  auto taking = takeAll(sequence, taken);
  taking.start();
  sequence.close();
  runPendingMainBlocks();
  EXPECT_EQ(taken, ".");
  receive("ab");
  EXPECT_EQ(holds(), 0);
  take(sequence, 1);
  EXPECT_EQ(taken, "..");
}

TEST_F(EventSequenceTest, ClosingDropsWhatWaits) {
  auto sequence = awaitable::events(*session);
  receive("ab");
  sequence.close();
  take(sequence, 1);
  EXPECT_EQ(taken, ".");
}

TEST_F(EventSequenceTest, EndGivesWhatWaitsAndThenNone) {
  auto sequence = awaitable::events(*session);
  receive("a");
  session->end();
  auto taking = takeAll(sequence, taken);
  taking.start();
  runMainLoopUntil([this] { return taken.ends_with("."); });
  EXPECT_EQ(taken, "a.");
  auto late = awaitable::events(*session);
  auto takingLate = takeAll(late, taken);
  takingLate.start();
  runMainLoopUntil([this] { return taken.ends_with(".."); });
}

TEST_F(EventSequenceTest, OneNextAtATime) {
  auto sequence = awaitable::events(*session);
  std::string first;
  auto early = takeOne(sequence, first);
  early.start();
  auto late = takeOne(sequence, taken);
  late.start();
  runPendingMainBlocks();
  EXPECT_EQ(first, ".");
  receive("a");
  runPendingMainBlocks();
  EXPECT_EQ(taken, "a");
}

TEST_F(EventSequenceTest, DestroyedWhileNextWaitsLosesNoEvent) {
  auto sequence = awaitable::events(*session);
  {
    auto taking = takeOne(sequence, taken);
    taking.start();
  }
  {
    const auto elsewhere = [](EventSequence& events, std::string& text) -> kvltest::Task {
      co_await events.next();
      text += "!";
    }(sequence, taken);
  }
  receive("a");
  runPendingMainBlocks();
  EXPECT_EQ(taken, "");
  take(sequence, 1);
  EXPECT_EQ(taken, "a");
}

// The event has left the buffer, and waits for its turn on the main queue.
TEST_F(EventSequenceTest, CancelledBeforeItGoesOnLosesNoEvent) {
  auto sequence = awaitable::events(*session);
  {
    auto taking = takeOne(sequence, taken);
    taking.start();
    receive("ab");
  }
  {
    auto takingAtOnce = takeOne(sequence, taken);
    takingAtOnce.start();
  }
  runPendingMainBlocks();
  EXPECT_EQ(taken, "");
  take(sequence, 2);
  EXPECT_EQ(taken, "ab");
}

TEST_F(EventSequenceTest, ItsEventIsForWhoeverWaitsByThen) {
  auto sequence = awaitable::events(*session, {.most = 1});
  std::string first;
  auto late = takeOne(sequence, taken);
  {
    auto early = takeOne(sequence, first);
    early.start();
    receive("a");
    late.start();
  }
  runPendingMainBlocks();
  EXPECT_EQ(first + taken, "a");
  EXPECT_EQ(holds(), 0);
  {
    auto cancelled = takeOne(sequence, taken);
    cancelled.start();
    receive("b");
    sequence.close();
  }
  take(sequence, 1);
  EXPECT_EQ(taken, "a.") << "an event has come back into a closed sequence";
}

// Both events are on their way when their tasks go, the first one's first.
TEST_F(EventSequenceTest, SeveralThatAreCancelledBeforeTheyGoOnLeaveTheOrder) {
  auto sequence = awaitable::events(*session);
  {
    auto first = std::make_optional(takeOne(sequence, taken));
    first->start();
    receive("ab");
    auto second = takeOne(sequence, taken);
    second.start();
    first.reset();
  }
  runPendingMainBlocks();
  EXPECT_EQ(taken, "");
  take(sequence, 2);
  EXPECT_EQ(taken, "ab");
}

TEST_F(EventSequenceTest, MovedFromItGivesNone) {
  auto sequence = awaitable::events(*session);
  const auto moved = std::move(sequence);
  receive("a");
  take(sequence, 1);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(taken, ".");
}

TEST_F(EventSequenceTest, OtherCoroutinesMayDestroyItWhereItsEventsArrive) {
  auto sequence = std::make_optional(awaitable::events(*session));
  [](std::optional<EventSequence>& events, std::string& text) -> Detached {
    const auto event = co_await events->next();
    text += (*event)->event().value_or("?");
    events.reset();
  }(sequence, taken);
  receive("ab");
  EXPECT_EQ(taken, "a");
  EXPECT_FALSE(sequence);
}

TEST_F(EventSequenceTest, HoldsItsSessionOnlyWhileANextWaits) {
  auto sequence = awaitable::events(*session);
  auto taking = takeOne(sequence, taken);
  taking.start();
  const std::shared_ptr<kvl::URLSession> stays = loader;
  const auto stream = streamTask();
  const auto watch = release();
  loader->dropTasks();
  ASSERT_FALSE(watch.expired()) << "the next that waits has lost its session";
  watch.lock()->didReceiveData(*stays, stream, kvl::Data::fromText("event: a\n\n"));
  runPendingMainBlocks();
  EXPECT_EQ(taken, "a");
  EXPECT_TRUE(watch.expired());
  take(sequence, 1);
  EXPECT_EQ(taken, "a.");
}

kvl::Task<> fetchBetween(KVLSession& session, std::string& order) {
  auto sequence = awaitable::events(session, {.most = 1});
  while (const auto event = co_await sequence.next()) {
    order += (*event)->event().value_or("?");
    const auto fetched = co_await awaitable::submit(kvl::Array(), RelativePath("a"), session);
    order += fetched.error ? "!" : "+";
  }
}

// The answer comes by the queue on which the events come; nothing may be in its way.
TEST_F(EventSequenceTest, FetchingBetweenEventsNeverBlocks) {
  auto fetching = fetchBetween(*session, taken);
  fetching.start();
  receive("abc");
  const auto stream = streamTask();
  runPendingMainBlocks();
  EXPECT_EQ(stream->suspensions, 1);
  for (int i = 0; i < 3; ++i) {
    answer("1");
    runPendingMainBlocks();
  }
  EXPECT_EQ(taken, "a+b+c+");
  EXPECT_EQ(stream->suspensions, 0);
}

// Events on one thread, their taker on another, and the end of it all on a third.
TEST_F(EventSequenceTest, GoesAtAnyMoment) {
  const auto home = kvl::DispatchQueue::serial("tests.events.home");
  for (int round = 0; round < 50; ++round) {
    std::string text;
    auto sequence = awaitable::events(*session, {.most = 2});
    {
      auto taking = takeAll(sequence, text).on(home);
      taking.start();
      const std::jthread receiving([this] {
        for (int i = 0; i < 5; ++i) receive("abc");
      });
      if (round % 3 == 0) std::this_thread::yield();
      if (round % 2 == 0) onAnotherThread([&] { taking.cancel(); });
      sequence.close();
    }
    kvl::Semaphore idle;
    home->async([&] { idle.signal(); });
    idle.wait();
    EXPECT_EQ(holds(), 0) << "nobody is left to let go of the stream, in round " << round;
  }
}

}  // namespace
