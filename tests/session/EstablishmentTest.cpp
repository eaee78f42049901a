// Waiting for a session to be established, and why it is not.
#include "tests/session/SessionFixture.h"
#include "tests/support/Halt.h"
#include "tests/support/MainLoop.h"
#include "tests/support/OtherThread.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Semaphore.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

kvl::Error ranOutOfTime() {
  return {kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode};
}

// What a wait has come to.
class Wait {
 public:
  [[nodiscard]] KVLSession::EstablishedHandler handler() const {
    return [told = told_](const std::optional<kvl::Error>& error) {
      told->error = error;
      ++told->calls;
      told->semaphore.signal();
    };
  }
  [[nodiscard]] bool isTold() const { return told_->semaphore.waitFor(20s); }
  [[nodiscard]] int calls() const { return told_->calls; }
  // Once it is told.
  [[nodiscard]] std::optional<kvl::Error> error() const { return told_->error; }
  [[nodiscard]] long holders() const { return told_.use_count(); }

 private:
  struct Told {
    std::atomic<int> calls = 0;
    std::optional<kvl::Error> error;
    kvl::Semaphore semaphore;
  };
  const std::shared_ptr<Told> told_ = std::make_shared<Told>();
};

bool operator==(const std::optional<kvl::Error>& one, const kvl::Error& other) {
  return one && one->is(other.domain(), other.code());
}

class EstablishmentTest : public SessionFixture {
 protected:
  void SetUp() override { create(); }

  [[nodiscard]] kvl::Observation wait(const Wait& wait, std::chrono::nanoseconds limit = 1h,
                                      KVLSessionWait how = KVLSessionWait::untilLimit) const {
    return session->whenEstablished(limit, wait.handler(), how);
  }
  // Whatever was to be told before this has been told when it returns.
  void passObservers() const {
    kvl::Semaphore passed;
    const auto observation = session->observeState([&](auto) { passed.signal(); });
    ASSERT_TRUE(passed.waitFor(20s));
  }
};

TEST_F(EstablishmentTest, AtOnceWhenEstablished) {
  establish();
  for (const auto how : {KVLSessionWait::untilLimit, KVLSessionWait::untilFirstFailure}) {
    const Wait told;
    const auto handle = wait(told, 1h, how);
    ASSERT_TRUE(told.isTold());
    EXPECT_EQ(told.error(), std::nullopt);
  }
}

TEST_F(EstablishmentTest, AfterTheObserversWereTold) {
  kvl::Semaphore isRunning;
  kvl::Semaphore goOn;
  const auto observation = session->observeState([&](KVLSessionState state) {
    if (state != KVLSessionStateEstablished) return;
    isRunning.signal();
    static_cast<void>(goOn.waitFor(20s));
  });
  std::string shown;
  const auto shows = session->progress()->observe(
      [&](const kvl::ProgressState& state) { shown = state.localizedDescription; });
  std::string shownWhenTold;
  const Wait told;
  const auto handle = session->whenEstablished(1h, [&](const auto& error) {
    shownWhenTold = shown;
    told.handler()(error);
  });
  establish();
  ASSERT_TRUE(isRunning.waitFor(20s));
  const Wait late;
  const auto lateHandle = wait(late);
  EXPECT_EQ(told.calls() + late.calls(), 0);
  goOn.signal();
  ASSERT_TRUE(told.isTold() && late.isTold());
  EXPECT_EQ(shownWhenTold, "Established");
  EXPECT_EQ(told.calls() + late.calls(), 2);
}

// The observer hears of the state in the middle of the notarisation's completion.
TEST_F(EstablishmentTest, WhoeverAsksInTheMiddleIsToldWhenAllIsShown) {
  const Wait told;
  kvl::Observation handle;
  std::string shown;
  *made = [&](auto&&...) {  // by then the state may be anything
    session->setState(KVLSessionStateEstablished);
    handle = session->whenEstablished(1h, [&](const auto& error) {
      shown = session->progress()->localizedDescription();
      told.handler()(error);
    });
    passObservers();
    EXPECT_EQ(told.calls(), 0);
  };
  establish();
  ASSERT_TRUE(told.isTold());
  EXPECT_EQ(shown, "Established");
}

TEST_F(EstablishmentTest, TheFirstFailureEndsItForThoseWhoWantThat) {
  const Wait impatient;
  const Wait patient;
  const auto impatientHandle = wait(impatient, 1h, KVLSessionWait::untilFirstFailure);
  const auto patientHandle = wait(patient);
  notary->answer(nullptr, recoverableError());
  ASSERT_TRUE(impatient.isTold());
  EXPECT_TRUE(impatient.error() == recoverableError());
  queue->advance(5s);
  establish();
  ASSERT_TRUE(patient.isTold());
  EXPECT_EQ(patient.error(), std::nullopt);
  EXPECT_EQ(impatient.calls(), 1);
}

TEST_F(EstablishmentTest, AFailureBeforeTheCallEndsItUnlessAnotherIsOutstanding) {
  notary->answer(nullptr, finalError());
  const Wait told;
  const auto handle = wait(told, 1h, KVLSessionWait::untilFirstFailure);
  ASSERT_TRUE(told.isTold());
  EXPECT_TRUE(told.error() == finalError());
  session->enqueueNotarisation();
  const Wait asked;
  const auto askedHandle = wait(asked, 1h, KVLSessionWait::untilFirstFailure);
  passObservers();
  EXPECT_EQ(asked.calls(), 0);
  establish();
  ASSERT_TRUE(asked.isTold());
  EXPECT_EQ(asked.error(), std::nullopt);
}

TEST_F(EstablishmentTest, NeitherSignatureNorErrorIsAFailure) {
  const Wait told;
  const auto handle = wait(told, 1h, KVLSessionWait::untilFirstFailure);
  notary->answer(nullptr);
  ASSERT_TRUE(told.isTold());
  EXPECT_TRUE(told.error() == kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown));
  EXPECT_EQ(session->lastError()->localizedDescription(), "Notarised session is not established.");
}

TEST_F(EstablishmentTest, TheLimitEndsIt) {
  const Wait told;
  const auto handle = wait(told, 10s);
  queue->advance(10s - 1ns);
  passObservers();
  EXPECT_EQ(told.calls(), 0);
  queue->advance(1ns);
  ASSERT_TRUE(told.isTold());
  EXPECT_TRUE(told.error() == ranOutOfTime());
  notary->answer(nullptr, recoverableError());
  const Wait informed;
  const auto informedHandle = wait(informed, 1s);
  queue->advance(1s);
  ASSERT_TRUE(informed.isTold());
  EXPECT_TRUE(informed.error() == recoverableError());
  establish([&] {
    queue->advance(5s);
    return signatureEnding(queue->wallTime().adding(1000));
  }());
  passObservers();
  EXPECT_EQ(told.calls() + informed.calls(), 2);
}

TEST_F(EstablishmentTest, WithoutALimitNoTimerIsSet) {
  (void)queue->takeDelays();
  const Wait told;
  const auto handle = wait(told, std::chrono::nanoseconds::max());
  EXPECT_TRUE(queue->takeDelays().empty());
  establish();
  ASSERT_TRUE(told.isTold());
  EXPECT_EQ(told.error(), std::nullopt);
}

TEST_F(EstablishmentTest, LimitZeroAsksOnly) {
  for (const auto limit : {0ns, std::chrono::nanoseconds(-1), std::chrono::nanoseconds::min()}) {
    const Wait told;
    const auto handle = wait(told, limit);
    ASSERT_TRUE(told.isTold());
    EXPECT_TRUE(told.error() == ranOutOfTime());
    EXPECT_TRUE(session->waitUntilEstablished(limit) == ranOutOfTime());
  }
  establish();
  EXPECT_EQ(session->waitUntilEstablished(0s), std::nullopt);
}

TEST_F(EstablishmentTest, EndEndsIt) {
  const Wait told;
  const auto handle = wait(told);
  session->end();
  ASSERT_TRUE(told.isTold());
  const kvl::Error cancelled(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled);
  EXPECT_TRUE(told.error() == cancelled);
  const Wait late;
  const auto lateHandle = wait(late);
  ASSERT_TRUE(late.isTold());
  EXPECT_TRUE(late.error() == cancelled);
  EXPECT_TRUE(session->waitUntilEstablished(1h) == cancelled);
  EXPECT_TRUE(session->waitUntilEstablished(0s) == cancelled);
}

TEST_F(EstablishmentTest, TheGoingOfTheSessionEndsIt) {
  const Wait told;
  const auto handle = wait(told);
  session.reset();
  notary->drop();
  ASSERT_TRUE(told.isTold());
  EXPECT_TRUE(told.error() == kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  queue->advance(2h);
  EXPECT_EQ(told.calls(), 1);
}

TEST_F(EstablishmentTest, TheHandleEndsIt) {
  const Wait told;
  auto handle = wait(told);
  EXPECT_GT(told.holders(), 1);
  handle = {};
  EXPECT_EQ(told.holders(), 1) << "what the handler held is gone";
  queue->advance(2h);
  establish();
  passObservers();
  EXPECT_EQ(told.calls(), 0);
}

TEST_F(EstablishmentTest, TheHandleWaitsForItsHandlerOnAnotherThread) {
  const Halt halt;
  std::atomic<int> over = 0;
  auto handle = session->whenEstablished(1h, [&, place = halt.place()](auto&&...) {
    place();
    ++over;
  });
  establish();
  ASSERT_TRUE(halt.isReached());
  OtherThread ending([&] {
    handle.end();
    EXPECT_EQ(over, 1);
  });
  EXPECT_TRUE(ending.isWaiting());
  halt.letGo();
  ending.join();
  passObservers();
  EXPECT_EQ(over, 1);
}

TEST_F(EstablishmentTest, WhatTheHandlerHoldsGoesOnceItIsTold) {
  const Wait told;
  const auto handle = wait(told);
  establish();
  ASSERT_TRUE(told.isTold());
  EXPECT_TRUE(waitUntil([&] { return told.holders() == 1; }));
}

TEST_F(EstablishmentTest, FromItsOwnHandlerEverythingMayBeDone) {
  const Wait again;
  const Wait done;
  kvl::Observation handle;
  kvl::Observation second;
  handle = session->whenEstablished(1h, [&](const std::optional<kvl::Error>& error) {
    second = wait(again);
    session->disconnectAfterError();
    handle = {};
    done.handler()(error);
  });
  establish();
  ASSERT_TRUE(done.isTold() && again.isTold());
  EXPECT_EQ(done.calls(), 1);
  EXPECT_EQ(again.error(), std::nullopt);
  EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
}

TEST_F(EstablishmentTest, HundredWaitersOnTenThreadsAreToldOnceEach) {
  constexpr int kThreads = 10;
  constexpr int kWaits = 10;
  std::vector<std::pair<Wait, kvl::Observation>> waits(kThreads * kWaits);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kWaits; ++i) {
        auto& [told, handle] = waits[static_cast<std::size_t>(thread * kWaits + i)];
        handle = wait(told);
      }
    });
  }
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  for (auto& thread : threads) thread.join();
  for (const auto& [told, handle] : waits) {
    ASSERT_TRUE(told.isTold());
    EXPECT_EQ(told.error(), std::nullopt);
  }
  passObservers();
  for (const auto& [told, handle] : waits) EXPECT_EQ(told.calls(), 1);
}

TEST_F(EstablishmentTest, WaitingServesNoLoop) {
  bool isServed = false;
  kvl::DispatchQueue::main()->async([&] { isServed = true; });
  std::atomic<bool> isDone = false;
  OtherThread answering([&] {
    // The main thread waits by now, or will.
    notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  });
  EXPECT_EQ(session->waitUntilEstablished(1h), std::nullopt);
  isDone = true;
  EXPECT_FALSE(isServed);
  runPendingMainBlocks();
  EXPECT_TRUE(isServed);
}

TEST_F(EstablishmentTest, WaitingEndsWithTheLimitWithTheFailureAndWithTheEnd) {
  EXPECT_TRUE(session->waitUntilEstablished(5ms) == ranOutOfTime());
  notary->answer(nullptr, recoverableError());
  EXPECT_TRUE(session->waitUntilEstablished(5ms) == recoverableError());
  EXPECT_TRUE(session->waitUntilEstablished(1h, KVLSessionWait::untilFirstFailure) ==
              recoverableError());
  std::optional<kvl::Error> ended;
  OtherThread waiting([&] { ended = session->waitUntilEstablished(1h); });
  EXPECT_TRUE(waiting.isWaiting());
  session->end();
  waiting.join();
  EXPECT_TRUE(ended == kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
}

TEST_F(EstablishmentTest, WaitingInsideAnObserverComesToItsLimit) {
  const Wait told;
  const auto observation =
      session->observeState([&](auto) { told.handler()(session->waitUntilEstablished(5ms)); });
  ASSERT_TRUE(told.isTold());
  EXPECT_TRUE(told.error() == ranOutOfTime());
}

// The error is there when the state is told, and gone when there is none any more.
TEST_F(EstablishmentTest, TheLastErrorExplainsTheState) {
  std::vector<std::pair<KVLSessionState, std::int64_t>> seen;
  kvl::Semaphore established;
  const auto observation = session->observeState([&](KVLSessionState state) {
    const auto error = session->lastError();
    seen.emplace_back(state, error ? error->code() : 0);
    if (state == KVLSessionStateEstablished) established.signal();
  });
  passObservers();
  notary->answer(nullptr, recoverableError());
  passObservers();
  queue->advance(5s);
  establish();
  ASSERT_TRUE(established.waitFor(20s));
  using Seen = decltype(seen);
  EXPECT_EQ(seen, (Seen{{KVLSessionStateConnecting, 0},
                        {KVLSessionStateDisconnected, ENOENT},
                        {KVLSessionStateRecovering, ENOENT},
                        {KVLSessionStateEstablished, 0}}));
}

TEST_F(EstablishmentTest, ASignatureWithAnErrorLeavesTheError) {
  notary->answer(signatureFor("https://127.0.0.1:1/"), recoverableError());
  EXPECT_TRUE(session->lastError() == recoverableError());
}

TEST_F(EstablishmentTest, ARequestThatDisconnectsIsTheLastError) {
  establish();
  session->request(kvl::URLRequest("a"), [](auto&&...) {});
  session->request(kvl::URLRequest("b"), [](auto&&...) {});
  const auto tasks = loader->tasks();
  tasks[0]->fail({kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut});
  EXPECT_EQ(session->lastError(), std::nullopt);
  tasks[1]->fail(notarisationError());
  EXPECT_TRUE(session->lastError() == notarisationError());
  // It is no notarisation that has failed: the next one is waited for.
  const Wait told;
  const auto handle = wait(told, 1h, KVLSessionWait::untilFirstFailure);
  passObservers();
  EXPECT_EQ(told.calls(), 0);
}

TEST_F(EstablishmentTest, AStreamThatTheServiceEndsIsTheLastError) {
  establish();
  session->setEventStreamSource("events");
  const auto task = session->eventStream()->task();
  session->didCompleteWithError(*loader, task, std::nullopt);
  EXPECT_TRUE(session->lastError() ==
              kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost));
  session->end();
  EXPECT_TRUE(session->lastError().has_value());
}

TEST_F(EstablishmentTest, StatesHaveTexts) {
  const char* const texts[] = {"connecting", "established", "disconnected",
                               "recovering", "ended",       "unknown"};
  for (std::uint64_t state = 0; state < std::size(texts); ++state)
    EXPECT_EQ(KVLSessionStateText(static_cast<KVLSessionState>(state)), texts[state]);
}

}  // namespace
