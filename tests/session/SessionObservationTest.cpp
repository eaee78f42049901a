// Observers of a session's states, and the session, end in any order.
#include "tests/session/SessionFixture.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Semaphore.h>

#include <atomic>
#include <thread>
#include <utility>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

class SessionObservationTest : public SessionFixture {
 protected:
  void SetUp() override {
    create();
    establish();
  }

  // The test's own reference, which is the last one once no timer holds the session.
  [[nodiscard]] std::shared_ptr<KVLSession> takeTheSession() {
    queue->dropPending();
    return std::exchange(session, nullptr);
  }
};

TEST_F(SessionObservationTest, AnObservationMayOutliveItsSession) {
  auto held = takeTheSession();
  const auto token = std::make_shared<kvl::Semaphore>();
  auto observation = held->observeState([token](auto) { token->signal(); });
  ASSERT_TRUE(token->waitFor(20s));
  held.reset();
  EXPECT_TRUE(waitUntil([&] { return token.use_count() == 2; })) << "the observation's own";
  observation = {};
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(SessionObservationTest, ASessionMayGoInsideItsObserver) {
  auto held = takeTheSession();
  const std::weak_ptr<KVLSession> watch = held;
  kvl::Semaphore isObserved;
  kvl::Semaphore heard;
  const auto observation = held->observeState([&](auto) {
    static_cast<void>(isObserved.waitFor(20s));
    held.reset();
    heard.signal();
  });
  isObserved.signal();
  ASSERT_TRUE(heard.waitFor(20s));
  EXPECT_TRUE(watch.expired());
}

TEST_F(SessionObservationTest, ASessionMayGoOnAnotherThreadWhileItsObserverRuns) {
  auto held = takeTheSession();
  const std::weak_ptr<KVLSession> watch = held;
  kvl::Semaphore running;
  kvl::Semaphore goOn;
  std::atomic<int> told = 0;
  {
    const auto observation = held->observeState([&](auto) {
      running.signal();
      static_cast<void>(goOn.waitFor(20s));
      ++told;
    });
    ASSERT_TRUE(running.waitFor(20s));
    held->disconnectAfterError();  // which waits for its turn to be told
    std::thread([last = std::move(held)]() mutable { last.reset(); }).join();
    EXPECT_TRUE(watch.expired());
    goOn.signal();
    goOn.signal();
    EXPECT_TRUE(waitUntil([&] { return told == 2; }));
  }
  EXPECT_EQ(told, 2);
}

TEST_F(SessionObservationTest, TheEndIsToldLast) {
  std::vector<KVLSessionState> states;
  const auto observation =
      session->observeState([&](KVLSessionState state) { states.push_back(state); });
  std::vector<kvl::ProgressState> shown;
  const auto shows = session->progress()->observe(
      [&](const kvl::ProgressState& state) { shown.push_back(state); });
  kvl::Semaphore ended;
  session->end([&](auto&&...) { ended.signal(); });
  ASSERT_TRUE(ended.waitFor(20s));
  session->setState(KVLSessionStateDisconnected);
  session->disconnectAfterError();
  session->end([&](auto&&...) { ended.signal(); });
  ASSERT_TRUE(ended.waitFor(20s));
  EXPECT_EQ(states, (std::vector{KVLSessionStateEstablished, KVLSessionStateEnded}));
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_EQ(shown.back(), (kvl::ProgressState{1, 0, "Ended", ""}));
}

TEST_F(SessionObservationTest, WhoeverComesAfterTheEndHearsOfItOnce) {
  session->end();
  std::vector<KVLSessionState> states;
  const auto observation =
      session->observeState([&](KVLSessionState state) { states.push_back(state); });
  kvl::Semaphore ended;
  session->end([&](auto&&...) { ended.signal(); });
  ASSERT_TRUE(ended.waitFor(20s));
  EXPECT_EQ(states, std::vector{KVLSessionStateEnded});
}

}  // namespace
