// What the session monitor and the event stream's keep apart, in which order they are taken, and
// what runs with neither. One thread stands still inside a section, at a place where the section
// calls something of the test's; another one has to wait, or has not to.
#include "session/Monitors.h"
#include "tests/session/FakeTrust.h"
#include "tests/session/SessionFixture.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"
#include "tests/support/StepThrough.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Atomic.h>

#include <atomic>
#include <thread>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::session::SessionSection;
using kvl::session::StreamSection;
using Signature = std::shared_ptr<KVLNotarySignature>;

class SessionMonitorTest : public SessionFixture {
 protected:
  void SetUp() override { create(); }

  [[nodiscard]] Signature renewed() const {
    return signatureEnding(queue->wallTime().adding(2000));
  }
  // With a notarisation outstanding.
  void establishAndRenew() {
    establish(first);
    session->enqueueNotarisation();
  }
  void send() const {
    session->request(kvl::URLRequest("document"), [](auto&&...) {});
  }
  void challenge(std::string_view method, const kvl::TrustRef& trust = nullptr) const {
    session->didReceiveAuthenticationChallenge({{"127.0.0.1", 4321, std::string(method), trust}},
                                               [](auto&&...) {});
  }
  // A section of a thread that has read the signature before it was replaced.
  static void lockOnce(const Signature& signature) {
    const kvl::Atomic<Signature> current(signature);
    const SessionSection section(current);
  }

  const Signature first = signatureFor("https://127.0.0.1:4321/first/");
  Halt halt;
};

TEST_F(SessionMonitorTest, WhileARequestIsMadeNobodyElseIsInASection) {
  establishAndRenew();
  loader->whenATaskIsMade = halt.place();
  OtherThread sending([this] { send(); });
  ASSERT_TRUE(halt.isReached());
  OtherThread other([this] { send(); });
  OtherThread enqueuing([this] { session->enqueueNotarisation(); });
  OtherThread challenged([this] { challenge(kvl::NSURLAuthenticationMethodClientCertificate); });
  OtherThread completing([this] { notary->answer(renewed()); });
  EXPECT_TRUE(other.isWaiting());
  EXPECT_TRUE(enqueuing.isWaiting());
  EXPECT_TRUE(challenged.isWaiting());
  EXPECT_TRUE(completing.isWaiting());
  EXPECT_EQ(session->signature(), first);
  EXPECT_EQ(session->session(), loader);
  EXPECT_TRUE(loader->tasks().empty());
  halt.letGo();
}

TEST_F(SessionMonitorTest, AForcedDisconnectWaitsForARequestThatIsBeingMade) {
  establish(first);
  loader->whenATaskIsMade = halt.place();
  OtherThread sending([this] { send(); });
  ASSERT_TRUE(halt.isReached());
  OtherThread disconnecting([this] { session->disconnectAfterError(); });
  EXPECT_TRUE(disconnecting.isWaiting());
  EXPECT_EQ(session->signature(), first);
  EXPECT_EQ(loader->invalidations, 0);
  halt.letGo();
}

// The section that replaces the signature holds both of them: nobody who has met either gets in.
TEST_F(SessionMonitorTest, ARenewalLocksTheSignatureBeforeAndTheNewOne) {
  establishAndRenew();
  *made = [place = halt.place()](auto&&...) { place(); };
  const auto next = renewed();
  OtherThread completing([&] { notary->answer(next); });
  ASSERT_TRUE(halt.isReached());
  EXPECT_EQ(session->signature(), next);
  OtherThread before([this] { lockOnce(first); });
  OtherThread after([&] { lockOnce(next); });
  EXPECT_TRUE(before.isWaiting());
  EXPECT_TRUE(after.isWaiting());
  halt.letGo();
}

TEST_F(SessionMonitorTest, WhoeverSeesTheNewSignatureSeesTheWholeSession) {
  *made = [place = halt.place()](auto&&...) { place(); };
  OtherThread completing([this] { notary->answer(first); });
  ASSERT_TRUE(halt.isReached());
  ASSERT_EQ(session->signature(), first);
  ASSERT_EQ(session->session(), nullptr);
  std::atomic<int> answered = 0;
  std::shared_ptr<kvl::DataTask> task;
  OtherThread sending(
      [&] { task = session->request(kvl::URLRequest("x"), [&](auto&&...) { ++answered; }); });
  EXPECT_TRUE(sending.isWaiting());
  halt.letGo();
  sending.join();
  EXPECT_NE(task, nullptr);
  EXPECT_EQ(answered, 0) << "it was told that there is no session";
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(session->progress()->completedUnitCount(), 1);
}

// A section goes on holding the signature with which it began, also when it takes it away itself.
TEST_F(SessionMonitorTest, AForcedDisconnectHoldsTheSignatureThatItDropsToItsEnd) {
  establish(first);
  loader->whenItFinishes = halt.place();
  OtherThread disconnecting([this] { session->disconnectAfterError(); });
  ASSERT_TRUE(halt.isReached());
  EXPECT_EQ(session->signature(), nullptr);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  OtherThread late([this] { lockOnce(first); });
  EXPECT_TRUE(late.isWaiting());
  halt.letGo();
  late.join();
  disconnecting.join();
  EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
}

TEST_F(SessionMonitorTest, WithoutASignatureSectionsExcludeNobody) {
  session->setSession(loader);
  loader->whenItFinishes = halt.place();
  OtherThread disconnecting([this] { session->disconnectAfterError(); });
  ASSERT_TRUE(halt.isReached());
  OtherThread sending([this] { send(); });
  OtherThread enqueuing([this] { session->enqueueNotarisation(); });
  OtherThread challenged([this] { challenge(kvl::NSURLAuthenticationMethodClientCertificate); });
  EXPECT_FALSE(sending.isWaiting());
  EXPECT_FALSE(enqueuing.isWaiting());
  EXPECT_FALSE(challenged.isWaiting());
  halt.letGo();
}

TEST_F(SessionMonitorTest, AThreadInsideASectionMayBeginOthers) {
  establish(first);
  int depth = 0;
  loader->whenATaskIsMade = [&] {
    if (++depth > 1) return;
    send();
    session->enqueueNotarisation();
    challenge(kvl::NSURLAuthenticationMethodClientCertificate);
  };
  OtherThread sending([this] { send(); });
  ASSERT_FALSE(sending.isWaiting());
  EXPECT_EQ(loader->tasks().size(), 2U);
  EXPECT_EQ(notary->calls(), 2U);
  // All of them have ended: nobody waits any more.
  OtherThread after([this] { lockOnce(first); });
  EXPECT_FALSE(after.isWaiting());
}

TEST_F(SessionMonitorTest, TheAnchorIsSetInsideASectionAndTrustIsEvaluatedOutside) {
  establish(first);
  const Halt setting;
  const Halt evaluating;
  const auto trust = std::make_shared<FakeTrust>();
  trust->whenAnchorsAreSet = setting.place();
  trust->whenEvaluated = evaluating.place();
  OtherThread challenged([&] { challenge(kvl::NSURLAuthenticationMethodServerTrust, trust); });
  ASSERT_TRUE(setting.isReached());
  OtherThread sending([this] { send(); });
  EXPECT_TRUE(sending.isWaiting());
  setting.letGo();
  ASSERT_TRUE(evaluating.isReached());
  EXPECT_FALSE(sending.isWaiting());
  OtherThread disconnecting([this] { session->disconnectAfterError(); });
  EXPECT_FALSE(disconnecting.isWaiting());
  evaluating.letGo();
}

TEST_F(SessionMonitorTest, ChallengesAreAnsweredOutside) {
  establish(first);
  first->setIdentity(std::make_shared<const kvl::Identity>(nullptr, nullptr));
  for (const auto method : {kvl::NSURLAuthenticationMethodServerTrust,
                            kvl::NSURLAuthenticationMethodClientCertificate}) {
    const Halt answering;
    OtherThread challenged([&] {
      session->didReceiveAuthenticationChallenge(
          {{"127.0.0.1", 4321, std::string(method), std::make_shared<FakeTrust>()}},
          [place = answering.place()](auto&&...) { place(); });
    });
    ASSERT_TRUE(answering.isReached());
    OtherThread sending([this] { send(); });
    EXPECT_FALSE(sending.isWaiting()) << method;
    answering.letGo();
  }
}

TEST_F(SessionMonitorTest, AHandlerThatIsToldAtOnceRunsOutside) {
  session->setSession(loader);
  const Halt answering;
  OtherThread refused([&] {
    session->request(kvl::URLRequest("x"), [place = answering.place()](auto&&...) { place(); });
  });
  ASSERT_TRUE(answering.isReached());
  OtherThread disconnecting([this] { session->disconnectAfterError(); });
  EXPECT_FALSE(disconnecting.isWaiting());
  answering.letGo();
}

TEST_F(SessionMonitorTest, TheNotaryIsAskedOutside) {
  establish(first);
  const auto asked = std::make_shared<FakeNotary>();
  asked->whenAsked = halt.place();
  session->setNotary(asked);
  OtherThread enqueuing([this] { session->enqueueNotarisation(); });
  ASSERT_TRUE(halt.isReached());
  OtherThread sending([this] { send(); });
  EXPECT_FALSE(sending.isWaiting());
  halt.letGo();
  enqueuing.join();
  asked->drop();
}

// Counts calls and answers none.
class CountingNotary final : public KVLNotary {
 public:
  CountingNotary() : KVLNotary(WithoutKeys{}) {}
  void notariseWithCompletionHandler(CompletionHandler /*handler*/) override { ++calls; }
  std::atomic<int> calls = 0;
};

// Begins rounds for two threads as nearly at one time as can be, each time a little otherwise.
class Race {
 public:
  static constexpr int kRounds = 2'000;

  void begin(int round) { round_ = round; }
  void run(int round, int shift, const std::function<void()>& call) {
    for (int spins = 0; round_ < round; ++spins) {
      if (spins % 1000 == 999) std::this_thread::yield();
    }
    for (volatile int i = shift; i > 0;) i = i - 1;
    call();
    ++ended_;
    while (ended_ < 2 * round) std::this_thread::yield();
  }

 private:
  std::atomic<int> round_ = 0;
  std::atomic<int> ended_ = 0;
};

// Without a signature no monitor keeps two callers apart, so it must be the flag.
TEST_F(SessionMonitorTest, OfCallersAtOneTimeOnlyOneAsksTheNotaryWithoutASignatureToo) {
  const auto counting = std::make_shared<CountingNotary>();
  session->setNotary(counting);
  Race race;
  const auto call = [this] { session->enqueueNotarisation(); };
  std::jthread other([&] {
    for (int round = 1; round <= Race::kRounds; ++round) race.run(round, round % 61, call);
  });
  for (int round = 1; round <= Race::kRounds; ++round) {
    session->setAwaitingSignature(false);
    race.begin(round);
    race.run(round, round % 67, call);
  }
  EXPECT_EQ(counting->calls, Race::kRounds);
}

#ifdef KVL_CAN_STEP_THROUGH
TEST_F(SessionMonitorTest, ACallJustBeforeAnotherSaysThatItAsksLeavesTheAskingToOne) {
  const auto counting = std::make_shared<CountingNotary>();
  session->setNotary(counting);
  const auto call = [this] { session->enqueueNotarisation(); };
  const auto callsWith = [&](const StepThrough::Between& between) {
    session->setAwaitingSignature(false);
    counting->calls = 0;
    const StepThrough steps(call, between);
    return counting->calls.load();
  };
  ASSERT_EQ(callsWith([](std::size_t) {}), 1);  // memory is as it will be from now on
  std::size_t last = 0;
  ASSERT_EQ(callsWith([&](std::size_t step) {
              if (!session->awaitingSignature()) last = step;
            }),
            1);
  for (std::size_t distance = 0; distance < 5; ++distance) {
    EXPECT_EQ(callsWith([&](std::size_t step) {
                if (step + distance == last) call();
              }),
              1)
        << distance << " instructions before";
  }
}
#endif

class MonitorOrderTest : public SessionMonitorTest {
 protected:
  // Has `call` wait for the event stream's monitor and sees that it has not taken the session's.
  void expectNoSessionMonitorBefore(const std::function<void()>& call) {
    std::optional<OtherThread> calling;
    std::optional<OtherThread> locking;
    {
      const StreamSection held(session->eventStream());
      calling.emplace(call);
      EXPECT_TRUE(calling->isWaiting());
      locking.emplace([this] { lockOnce(first); });
      EXPECT_FALSE(locking->isWaiting());
    }
    calling->join();
  }
};

TEST_F(MonitorOrderTest, AForcedDisconnectTakesTheStreamsFirst) {
  establish(first);
  expectNoSessionMonitorBefore([this] { session->disconnectAfterError(); });
  EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
}

TEST_F(MonitorOrderTest, ARenewalTakesTheStreamsFirst) {
  establishAndRenew();
  expectNoSessionMonitorBefore([this] { notary->answer(renewed()); });
  EXPECT_NE(session->signature(), first);
}

TEST_F(MonitorOrderTest, AFailedNotarisationTakesTheStreamsFirst) {
  establishAndRenew();
  expectNoSessionMonitorBefore([this] { notary->answer(nullptr, finalError()); });
  EXPECT_EQ(session->signature(), nullptr);
}

TEST_F(MonitorOrderTest, ARequestThatIsRefusedTakesTheStreamsFirst) {
  establish(first);
  send();
  expectNoSessionMonitorBefore([this] { loader->tasks().back()->fail(notarisationError()); });
  EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
}

// Between the look at the HTTPS session object and the disconnect no other takes its place.
TEST_F(MonitorOrderTest, ARefusedRequestLooksAtTheIdentityUnderTheStreamsMonitor) {
  establishAndRenew();
  send();
  const auto refused = loader->tasks().back();
  std::optional<OtherThread> refusing;
  {
    const StreamSection held(session->eventStream());
    refusing.emplace([&] { refused->fail(notarisationError()); });
    EXPECT_TRUE(refusing->isWaiting());
    notary->answer(renewed());
  }
  refusing->join();
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(MonitorOrderTest, ASourceIsStoredAndOpenedBeforeAnotherOneIsLookedAt) {
  establish(first);
  loader->whenATaskIsMade = halt.place();
  OtherThread one([this] { session->setEventStreamSource("one"); });
  ASSERT_TRUE(halt.isReached());
  OtherThread two([this] { session->setEventStreamSource("two"); });
  EXPECT_TRUE(two.isWaiting());
  EXPECT_EQ(session->eventSource(), "one");
  halt.letGo();
  two.join();
  EXPECT_EQ(session->eventSource(), "two");
  EXPECT_EQ(session->eventStream()->task()->originalRequest().urlText(),
            "https://127.0.0.1:4321/first/two");
}

TEST_F(MonitorOrderTest, AStreamIsOpenedRecognisedAndCancelledUnderItsMonitor) {
  establish(first);
  loader->whenATaskIsMade = halt.place();
  OtherThread opening([this] { session->eventStream()->streamFromURL("events", *session); });
  ASSERT_TRUE(halt.isReached());
  const auto strange = std::make_shared<FakeDataTask>(7, kvl::URLRequest("x"), nullptr);
  OtherThread comparing([&] { (void)session->eventStream()->isEqualToTask(*strange); });
  OtherThread receiving(
      [&] { session->didReceiveData(*loader, strange, kvl::Data::fromText("a: b\n")); });
  OtherThread ending([&] { session->didCompleteWithError(*loader, strange, std::nullopt); });
  OtherThread cancelling([this] { session->eventStream()->cancel(); });
  EXPECT_TRUE(comparing.isWaiting());
  EXPECT_TRUE(receiving.isWaiting());
  EXPECT_TRUE(ending.isWaiting());
  EXPECT_TRUE(cancelling.isWaiting());
  halt.letGo();
  cancelling.join();
  EXPECT_EQ(session->eventStream()->task(), nullptr);
}

}  // namespace
