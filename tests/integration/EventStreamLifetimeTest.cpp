// Session and delegate go while the stream runs.
#include "tests/integration/EventStreamFixture.h"
#include "tests/support/WaitUntil.h"

#include <local/KVLEncodingAwaitEvents.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Task.h>

#include <atomic>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

// Forgets what is to happen later: a session's next renewal, which would keep the session alive.
class TimerlessQueue final : public kvl::DispatchQueue {
 public:
  void async(Block block) override { inner_->async(std::move(block)); }
  void asyncAfter(std::chrono::nanoseconds /*delay*/, Block /*block*/) override {}
  [[nodiscard]] const std::string& label() const noexcept override { return inner_->label(); }

 private:
  const std::shared_ptr<kvl::DispatchQueue> inner_ = kvl::DispatchQueue::concurrent("timerless");
};

template <class Object>
bool goes(const std::weak_ptr<Object>& object) {
  return waitUntil([&] { return object.expired(); });
}

class EventStreamLifetimeTest : public EventStreamFixture {
 protected:
  // Establishes a session that only the test keeps alive.
  void establishMortal() {
    startService();
    offerNotary();
    createSessionWithoutNotary();
    session->setQueue(std::make_shared<TimerlessQueue>());
    session->setDelegate(recorder);
    session->setNotary(std::make_shared<KVLNotary>());
    session->setAwaitingSignature(false);
    session->enqueueNotarisation();
    ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
  }

  // Releases what the test holds of the session.
  [[nodiscard]] std::weak_ptr<KVLSession> releaseSession() {
    states.reset();
    return std::exchange(session, nullptr);
  }
};

TEST_F(EventStreamLifetimeTest, SessionReleasedByTheHostEndsTheStream) {
  establishMortal();
  follow("interval=1");
  ASSERT_TRUE(recorder->waitForNumber(20));
  EXPECT_TRUE(goes(releaseSession()));
  EXPECT_TRUE(waitForServiceLog("a stream ends after"));
}

TEST_F(EventStreamLifetimeTest, SessionReleasedOnAnotherThreadInAFlood) {
  establishMortal();
  follow("size=1000");
  ASSERT_TRUE(recorder->waitForNumber(100));
  std::weak_ptr<KVLSession> released;
  std::thread([&] { released = releaseSession(); }).join();
  EXPECT_TRUE(goes(released));
  EXPECT_TRUE(waitForServiceLog("a stream ends after"));
}

TEST_F(EventStreamLifetimeTest, SessionReleasedInsideTheDelegatesCall) {
  establishMortal();
  states.reset();
  const std::weak_ptr<KVLSession> released = session;
  kvl::Semaphore done;
  std::once_flag once;
  const ScopedHook hook(recorder, [&](KVLSession&, const Tally& tally) {
    if (tally.last < 20) return;
    std::call_once(once, [&] {
      session.reset();
      done.signal();
    });
  });
  released.lock()->setEventStreamSource(source("interval=1"));
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_TRUE(goes(released));
  EXPECT_TRUE(waitForServiceLog("a stream ends after"));
}

TEST_F(EventStreamLifetimeTest, SessionIsDisconnectedInsideTheDelegatesCall) {
  establishOver(Route::direct);
  recorder->setHook([](KVLSession& caller, const Tally& tally) {
    if (tally.last >= 20) caller.disconnectAfterError();
  });
  follow("interval=1");
  ASSERT_TRUE(states->waitFor(KVLSessionStateDisconnected));
  recorder->setHook(nullptr);
  session->enqueueNotarisation();
  ASSERT_TRUE(recorder->waitForNumber(recorder->tally().last + 20));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
}

TEST_F(EventStreamLifetimeTest, SourceChangesInsideTheDelegatesCall) {
  establishOver(Route::direct);
  recorder->setHook([](KVLSession& caller, const Tally& tally) {
    caller.setEventStreamSource(source("interval=1&last=" + std::to_string(1000 + tally.last)));
  });
  follow("interval=1");
  ASSERT_TRUE(recorder->waitForNumber(50));
  recorder->setHook(nullptr);
  ASSERT_TRUE(recorder->waitForNumber(200));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
}

class Listener final : public KVLSessionDelegate {
 public:
  explicit Listener(std::atomic<int>& calls) : calls_(calls) {}
  void eventStream(KVLSession&, const std::vector<std::shared_ptr<KVLEvent>>&) override {
    ++calls_;
  }

 private:
  std::atomic<int>& calls_;
};

// What comes without a delegate is dropped; the stream runs on, and the next delegate gets what
// comes from then on.
TEST_F(EventStreamLifetimeTest, DelegateReleasedInTheMiddle) {
  establishOver(Route::direct);
  follow("interval=1");
  ASSERT_TRUE(recorder->waitForNumber(20));
  std::atomic<int> calls = 0;
  auto listener = std::make_shared<Listener>(calls);
  const std::weak_ptr<Listener> released = listener;
  session->setDelegate(listener);
  ASSERT_TRUE(waitUntil([&] { return calls >= 20; }));
  listener.reset();
  EXPECT_TRUE(goes(released));
  EXPECT_EQ(get("status").status(), 200);
  const auto before = recorder->tally();
  session->setDelegate(recorder);
  ASSERT_TRUE(recorder->waitForCount(before.count + 20));
  const auto after = recorder->tally();
  EXPECT_EQ(after.disorder, 0);
  EXPECT_EQ(after.damaged, 0);
  EXPECT_GE(after.missing, 20);
  EXPECT_EQ(streamsOpened(), 1U);
}

TEST_F(EventStreamLifetimeTest, DelegateReleasedInsideItsOwnCall) {
  establishOver(Route::direct);
  auto temporary = std::make_shared<EventRecorder>();
  const std::weak_ptr<EventRecorder> released = temporary;
  kvl::Semaphore done;
  temporary->setHook([&, once = std::make_shared<std::once_flag>()](KVLSession&, const Tally&) {
    std::call_once(*once, [&] {
      temporary.reset();
      done.signal();
    });
  });
  session->setDelegate(temporary);
  follow("interval=1");
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_TRUE(goes(released));
  session->setDelegate(recorder);
  EXPECT_TRUE(recorder->waitForCount(20));
}

kvl::Task<> takeOne(KVLEncoding::awaitable::EventSequence& sequence, std::vector<int>& taken) {
  const auto event = co_await sequence.next();
  taken.push_back(event ? std::stoi((*event)->identifier().value_or("0")) : 0);
}

// Some wait for the stream's first event, others for one that is on its way to them.
TEST_F(EventStreamLifetimeTest, ATakerThatIsCancelledTakesNoEventAlong) {
  constexpr int kEvents = 100;
  establishOver(Route::direct);
  auto sequence = KVLEncoding::awaitable::events(*session, {.most = 4});
  const auto home = kvl::DispatchQueue::serial("takers");
  std::vector<int> taken;  // on that queue
  const auto count = [&] {
    std::size_t number = 0;
    kvl::Semaphore counted;
    home->async([&] {
      number = taken.size();
      counted.signal();
    });
    counted.wait();
    return number;
  };
  {
    takeOne(sequence, taken).on(home).start();
  }
  EXPECT_EQ(count(), 0U);
  follow("interval=1");
  for (int i = 0; count() < kEvents; ++i) {
    auto taking = takeOne(sequence, taken).on(home);
    taking.start();
    if (i % 4 == 0) {
      ASSERT_TRUE(waitUntil([&] { return taking.isDone(); }));
    } else if (i % 4 == 1) {
      (void)count();
    }
  }
  sequence.close();
  (void)count();
  std::vector<int> all(taken.size());
  std::iota(all.begin(), all.end(), 1);
  EXPECT_EQ(taken, all);
}

}  // namespace
