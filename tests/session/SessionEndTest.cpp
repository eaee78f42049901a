// The end of a session, whatever it does and wherever it is asked for.
#include "tests/session/SessionFixture.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"

#include <local/platform/Semaphore.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

class SessionEndTest : public SessionFixture {
 protected:
  // Ends the session and waits until that is complete.
  void end() {
    kvl::Semaphore ended;
    session->end([&](const std::optional<kvl::Error>& keyError) {
      EXPECT_EQ(keyError, std::nullopt);
      ended.signal();
    });
    ASSERT_TRUE(ended.waitFor(20s));
    expectEnded();
  }
  void expectEnded() const {
    EXPECT_TRUE(session->isEnded());
    EXPECT_EQ(session->state(), KVLSessionStateEnded);
    EXPECT_EQ(session->signature(), nullptr);
    EXPECT_EQ(session->session(), nullptr);
    EXPECT_EQ(session->eventStream()->task(), nullptr);
  }
  void receive(std::string_view bytes) const {
    session->didReceiveData(*loader, session->eventStream()->task(), kvl::Data::fromText(bytes));
  }
};

TEST_F(SessionEndTest, EndsRenewals) {
  create();
  establish();
  end();
  queue->advance(1000s);
  EXPECT_EQ(notary->calls(), 1U);
  EXPECT_FALSE(session->awaitingSignature());
}

TEST_F(SessionEndTest, EndsTheStreamAndInvalidatesTheHTTPSSessionObject) {
  create();
  establish();
  session->setEventStreamSource("events");
  const auto task = session->eventStream()->task();
  end();
  EXPECT_EQ(task->state(), kvl::DataTask::State::canceling);
  EXPECT_EQ(loader->invalidations, 1);
  session->didCompleteWithError(*loader, task,
                                kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  (void)queue->takeDelays();
  queue->advance(1h);
  EXPECT_TRUE(queue->takeDelays().empty());
}

TEST_F(SessionEndTest, InvalidatesThoseThatWereReplacedAndStillDrain) {
  create();
  establish();
  const auto running = std::make_shared<FakeURLSession>();
  session->setSession(running);
  EXPECT_EQ(loader->invalidations, 0);
  session->enqueueNotarisation();
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  EXPECT_EQ(running->invalidations, 0);
  end();
  EXPECT_EQ(loader->invalidations, 1);
  EXPECT_EQ(running->invalidations, 1);
}

TEST_F(SessionEndTest, WhileANotarisationIsOutstandingItsAnswerChangesNothing) {
  const kvl::Error error = finalError();
  const std::pair<bool, std::optional<kvl::Error>> answers[] = {
      {true, std::nullopt}, {false, error}, {true, error}, {false, std::nullopt}};
  for (const auto& [hasSignature, failure] : answers) {
    create();
    end();
    (void)queue->takeDelays();
    log.clear();
    const auto signature = signatureEnding(queue->wallTime().adding(1000));
    notary->answer(hasSignature ? signature : nullptr, failure);
    expectEnded();
    EXPECT_FALSE(session->awaitingSignature());
    EXPECT_EQ(session->lastError(), std::nullopt);
    EXPECT_EQ(session->progress()->localizedDescription(), "Ended");
    EXPECT_TRUE(queue->takeDelays().empty());
    EXPECT_EQ(log.lines(), std::vector<std::string>());
  }
}

TEST_F(SessionEndTest, WhileANotarisationCompletes) {
  const Halt halt;
  create();
  session->setEventStreamSource("events");
  *made = [place = halt.place()](auto&&...) { place(); };
  OtherThread completing(
      [this] { notary->answer(signatureEnding(queue->wallTime().adding(1000))); });
  ASSERT_TRUE(halt.isReached());
  // The host takes away the stream whose monitor would hold up the end.
  session->setEventStream(std::make_shared<KVLEventStreamState>());
  kvl::Semaphore ended;
  OtherThread ending([&] { session->end([&](auto&&...) { ended.signal(); }); });
  while (!session->isEnded()) std::this_thread::yield();
  halt.letGo();
  completing.join();
  ending.join();
  ASSERT_TRUE(ended.waitFor(20s));
  expectEnded();
  EXPECT_EQ(session->progress()->localizedDescription(), "Ended");
  queue->advance(1000s);
  EXPECT_EQ(notary->calls(), 1U);
}

TEST_F(SessionEndTest, InTheMiddleOfAnEstablishment) {
  create();
  session->setEventStreamSource("events");
  *made = [this](auto&&...) { session->end(); };
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  expectEnded();
  EXPECT_EQ(session->lastError(), std::nullopt);
  *made = nullptr;
}

// The completion has looked whether the session has ended, and goes on.
TEST_F(SessionEndTest, WhileAFailedNotarisationIsLogged) {
  create();
  const auto before = kvl::setLogSink([this](std::string_view line) {
    if (line.starts_with("notarisation error: ")) session->end();
  });
  notary->answer(nullptr, recoverableError());
  kvl::setLogSink(before);
  expectEnded();
  EXPECT_EQ(session->progress()->localizedDescription(), "Ended");
  const std::weak_ptr<KVLSession> watch = session;
  session.reset();
  EXPECT_TRUE(watch.expired()) << "its timer holds it";
  queue->advance(1000s);
  EXPECT_EQ(notary->calls(), 1U);
}

class EndingDelegate final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& session,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    calls += static_cast<int>(events.size());
    session.end();
  }
  int calls = 0;
};

TEST_F(SessionEndTest, InsideTheDelegate) {
  create();
  const auto delegate = std::make_shared<EndingDelegate>();
  session->setDelegate(delegate);
  int observed = 0;
  const auto observation = session->observeEvents([&](auto&&...) { ++observed; });
  establish();
  session->setEventStreamSource("events");
  receive("event: a\n\n");
  expectEnded();
  EXPECT_EQ(delegate->calls, 1);
  EXPECT_EQ(observed, 0);
}

TEST_F(SessionEndTest, InsideAnObserver) {
  create();
  kvl::Semaphore heard;
  const auto observation = session->observeState([&](KVLSessionState state) {
    if (state == KVLSessionStateEstablished) session->end();
    if (state == KVLSessionStateEnded) heard.signal();
  });
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  ASSERT_TRUE(heard.waitFor(20s));
  end();
}

TEST_F(SessionEndTest, InsideARequestsHandler) {
  create();
  establish();
  int calls = 0;
  session->request(kvl::URLRequest("a"), [&](auto&&...) {
    ++calls;
    session->end();
  });
  loader->tasks().back()->fail(notarisationError());
  EXPECT_EQ(calls, 1);
  end();
  queue->advance(1000s);
  EXPECT_EQ(notary->calls(), 1U);
}

TEST_F(SessionEndTest, WhileTheNotaryIsAsked) {
  create();
  notary->answer(nullptr);
  kvl::Semaphore ended;
  notary->whenAsked = [&] {
    session->end([&](auto&&...) { ended.signal(); });
    session->enqueueNotarisation();
  };
  queue->advance(15s);
  notary->whenAsked = nullptr;
  ASSERT_TRUE(ended.waitFor(20s));
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  end();
  EXPECT_EQ(notary->calls(), 2U);
}

TEST_F(SessionEndTest, InsideItsOwnHandler) {
  create();
  kvl::Semaphore ended;
  session->end([&](auto&&...) { session->end([&](auto&&...) { ended.signal(); }); });
  EXPECT_TRUE(ended.waitFor(20s));
}

TEST_F(SessionEndTest, FromTenThreadsAtOnceItIsOnce) {
  create();
  establish();
  std::atomic<int> told = 0;
  kvl::Semaphore all;
  std::vector<std::thread> threads;
  for (int i = 0; i < 10; ++i) {
    threads.emplace_back([&] {
      session->end([&](auto&&...) {
        ++told;
        all.signal();
      });
    });
  }
  for (auto& thread : threads) thread.join();
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(all.waitFor(20s));
  end();
  EXPECT_EQ(told, 10);
  EXPECT_EQ(loader->invalidations, 1);
}

// A batch that has been read waits for the delegate, which is busy with the one before.
TEST_F(SessionEndTest, NothingIsDeliveredAfterwards) {
  const Halt halt;
  class Busy final : public KVLSessionDelegate {
   public:
    explicit Busy(std::function<void()> place) : place_(std::move(place)) {}
    void eventStream(KVLSession& /*session*/,
                     const std::vector<std::shared_ptr<KVLEvent>>& /*events*/) override {
      ++calls;
      place_();
    }
    std::atomic<int> calls = 0;

   private:
    const std::function<void()> place_;
  };
  create();
  const auto busy = std::make_shared<Busy>(halt.place());
  session->setDelegate(busy);
  establish();
  session->setEventStreamSource("events");
  OtherThread first([this] { receive("event: a\n\n"); });
  ASSERT_TRUE(halt.isReached());
  OtherThread second([this] { receive("event: b\n\n"); });
  ASSERT_TRUE(second.isWaiting());
  end();  // which waits for neither
  halt.letGo();
  first.join();
  second.join();
  EXPECT_EQ(busy->calls, 1);
}

TEST_F(SessionEndTest, LetsTheSessionGoWithTimersPending) {
  create();
  establish();
  session->request(kvl::URLRequest("a"), [](auto&&...) {});
  loader->tasks().back()->fail(notarisationError());
  loader->dropTasks();
  EXPECT_EQ(queue->pendingCount(), 2U);
  end();
  const std::weak_ptr<KVLSession> watch = session;
  session.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(queue->pendingCount(), 2U);
  queue->advance(1000s);
  EXPECT_EQ(notary->calls(), 1U);
}

TEST_F(SessionEndTest, LastHeldByATimerItGoesInTheMiddleOfItsEnd) {
  create();
  establish();
  auto& last = *session;
  const std::weak_ptr<KVLSession> watch = session;
  session.reset();
  ASSERT_FALSE(watch.expired());
  kvl::Semaphore ended;
  last.end([&](auto&&...) { ended.signal(); });
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(ended.waitFor(20s));
}

TEST_F(SessionEndTest, ThenEverythingIsRefused) {
  create();
  establish();
  end();
  log.clear();
  int refusals = 0;
  const auto expectRefusal = [&](const std::optional<kvl::Error>& error) {
    ASSERT_TRUE(error.has_value());
    EXPECT_TRUE(error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown));
    EXPECT_EQ(error->localizedDescription(), "Notarised session is not established.");
    ++refusals;
  };
  session->setSignature(signatureEnding(queue->wallTime().adding(1000)));
  session->setSession(loader);
  EXPECT_EQ(session->request(kvl::URLRequest("a"),
                             [&](auto&&, auto&&, const auto& error) { expectRefusal(error); }),
            nullptr);
  kvl::BodyReceiver pieces;
  pieces.end = [&](auto&&, const auto& error) { expectRefusal(error); };
  EXPECT_EQ(session->requestPieces(kvl::URLRequest("a"), pieces), nullptr);
  EXPECT_EQ(refusals, 2);
  session->setEventStreamSource("events");
  EXPECT_EQ(session->eventSource(), "");
  session->enqueueNotarisation();
  EXPECT_EQ(notary->calls(), 1U);
  for (const auto state : {KVLSessionStateConnecting, KVLSessionStateEstablished})
    session->setState(state);
  EXPECT_EQ(session->state(), KVLSessionStateEnded);
  session->disconnectAfterError();
  EXPECT_NE(session->session(), nullptr);
  EXPECT_TRUE(loader->tasks().empty());
  EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST_F(SessionEndTest, NobodyElseEntersTheLastState) {
  create();
  session->setState(KVLSessionStateEnded);
  EXPECT_EQ(session->state(), KVLSessionStateConnecting);
  EXPECT_FALSE(session->isEnded());
}

}  // namespace
