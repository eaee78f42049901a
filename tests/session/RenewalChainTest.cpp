// One chain of renewals: the rate of notary calls never exceeds what a single chain makes.
#include "tests/session/SessionFixture.h"

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

class RenewalChainTest : public SessionFixture {
 protected:
  // Lets `span` pass in small steps; `afterEach` plays the world's part.
  template <class World>
  void live(std::chrono::seconds span, const World& afterEach,
            std::chrono::milliseconds step = 100ms) {
    for (auto passed = 0ms; passed < span; passed += step) {
      queue->advance(step);
      afterEach();
    }
  }

  void failRequest() {
    session->setSession(loader);
    session->request(kvl::URLRequest("x"), [](auto&&...) {});
    loader->tasks().back()->fail(notarisationError());
  }
};

TEST_F(RenewalChainTest, OvertakenTimersDoNothing) {
  create();
  establish(signatureEnding(queue->wallTime().adding(100)));  // due in 80 s
  failRequest();                                              // due in 1 s
  queue->advance(1s);
  EXPECT_EQ(notary->calls(), 2U);
  establish(signatureEnding(queue->wallTime().adding(1000)));  // due in 800 s
  queue->advance(790s);                                        // the 80 s timer fired meanwhile
  EXPECT_EQ(notary->calls(), 2U);
  queue->advance(10s);
  EXPECT_EQ(notary->calls(), 3U);
}

TEST_F(RenewalChainTest, RequestsThatFailTogetherReconnectOnce) {
  create();
  establish();
  for (int i = 0; i < 5; ++i) session->request(kvl::URLRequest("x"), [](auto&&...) {});
  for (const auto& task : loader->tasks()) task->fail(notarisationError());
  EXPECT_EQ(queue->takeDelays(), (std::vector<double>{800, 1, 1, 1, 1, 1}));
  queue->advance(1s);
  EXPECT_EQ(notary->calls(), 2U);
  notary->answer(nullptr, finalError());
  queue->advance(14s);
  EXPECT_EQ(notary->calls(), 2U);
  queue->advance(1s);
  EXPECT_EQ(notary->calls(), 3U);
}

TEST_F(RenewalChainTest, DirectCallsAlwaysActAndAddNoChain) {
  create();
  notary->answer(nullptr, finalError());
  for (int i = 0; i < 10; ++i) {
    session->enqueueNotarisation();
    notary->answer(nullptr, finalError());
  }
  EXPECT_EQ(notary->calls(), 11U);
  queue->advance(14s);
  EXPECT_EQ(notary->calls(), 11U);
  queue->advance(1s);
  EXPECT_EQ(notary->calls(), 12U);
  notary->answer(nullptr, finalError());
  queue->advance(14s);
  EXPECT_EQ(notary->calls(), 12U);
}

TEST_F(RenewalChainTest, TimerThatFiresDuringARequestLosesNothing) {
  create();
  establish();
  session->enqueueNotarisation();
  failRequest();
  queue->advance(1s);  // fires while the request is outstanding
  EXPECT_EQ(notary->calls(), 2U);
  notary->answer(nullptr, finalError());
  queue->advance(15s);
  EXPECT_EQ(notary->calls(), 3U);
}

// A service that always refuses: every new identity fails at its first request.
TEST_F(RenewalChainTest, RefusingServiceForTenMinutesKeepsTheRateOfOneChain) {
  create();
  const auto world = [this] {
    if (notary->outstanding() == 0) return;
    establish(signatureEnding(queue->wallTime().adding(60)));
    failRequest();
    failRequest();
  };
  world();
  // The answers come between the seconds, so that timers of different origins never fall together.
  live(600s, world, 70ms);
  // One call a second, plus the granularity of the steps.
  EXPECT_LE(notary->calls(), 601U);
  EXPECT_GE(notary->calls(), 500U);
  EXPECT_LE(queue->pendingCount(), 200U);
}

// The notary is away for a minute while certificates live five seconds.
TEST_F(RenewalChainTest, OutageOfAMinuteWithShortLifetimesKeepsTheRateOfOneChain) {
  create();
  bool away = false;
  const auto world = [&] {
    if (notary->outstanding() == 0) return;
    if (away) {
      notary->answer(nullptr, recoverableError());
    } else {
      establish(signatureEnding(queue->wallTime().adding(5)));
    }
  };
  world();
  live(60s, world);
  const auto before = notary->calls();
  away = true;
  live(60s, world);
  EXPECT_LE(notary->calls() - before, 60U / 5 + 1);
  away = false;
  const auto afterOutage = notary->calls();
  live(60s, world);
  EXPECT_LE(notary->calls() - afterOutage, 60U / 4 + 1);
  EXPECT_GE(notary->calls() - afterOutage, 60U / 5);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

}  // namespace
