#include "tests/session/SessionFixture.h"
#include "tests/support/UserEnvironment.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <tuple>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::ProgressState;

class SessionLifecycleTest : public SessionFixture {};

TEST_F(SessionLifecycleTest, BeginsConnectingAndAsksTheNotaryAtOnce) {
  create();
  EXPECT_EQ(session->state(), KVLSessionStateConnecting);
  EXPECT_EQ(notary->calls(), 1U);
  EXPECT_TRUE(session->awaitingSignature());
  EXPECT_EQ(session->eventSource(), "");
  EXPECT_EQ(session->signature(), nullptr);
  EXPECT_EQ(session->session(), nullptr);
  EXPECT_NE(session->eventStream(), nullptr);
  EXPECT_EQ(session->notary(), notary);
  EXPECT_EQ(session->delegate(), recorder);
}

TEST_F(SessionLifecycleTest, ItsOwnQueueCarriesTheLabel) {
  session = KVLSession::sessionWithNotary(notary, recorder);
  EXPECT_EQ(session->queue()->label(), "korvale.local.session");
}

// All members: a new one does not compile until it is here.
auto membersOf(const kvl::URLSessionConfiguration& configuration) {
  const auto& [requestTimeOut, headers, connections, http2, redirects, resourceTimeOut, clearText,
               body, document, image, cells, line, head, buffer] = configuration;
  return std::tuple(requestTimeOut, headers, connections, http2, redirects, resourceTimeOut,
                    clearText, body, document, image, cells, line, head, buffer);
}

TEST_F(SessionLifecycleTest, ConfigurationIsTheEphemeralOneUnchanged) {
  create();
  EXPECT_EQ(membersOf(session->configuration()),
            membersOf(kvl::URLSessionConfiguration::ephemeral()));
}

TEST_F(SessionLifecycleTest, EachHTTPSSessionObjectGetsTheConfigurationAndTheSessionAsItsDelegate) {
  create();
  std::vector<kvl::URLSessionConfiguration> configurations;
  *made = [&](const auto& configuration, const auto& delegate) {
    configurations.push_back(configuration);
    EXPECT_EQ(delegate.lock(), session);
  };
  auto configuration = session->configuration();
  for (const int connections : {2, 3}) {
    configuration.maximumConnectionsPerHost = connections;
    configuration.timeoutIntervalForRequest = std::chrono::seconds(connections);
    configuration.additionalHeaders.set("X-Host", std::to_string(connections));
    session->setConfiguration(configuration);
    session->setAwaitingSignature(false);
    session->enqueueNotarisation();
    notary->answer(signatureFor("https://127.0.0.1:9/"));
    EXPECT_EQ(membersOf(configurations.back()), membersOf(configuration));
  }
  EXPECT_EQ(configurations.size(), 2U);
}

// The completion of the failure has given its monitors back, and goes on.
TEST_F(SessionLifecycleTest, ASuccessRightBehindAFailureIsNotUndone) {
  create();
  establish();  // nothing is logged about the source after that
  session->enqueueNotarisation();
  const auto before = kvl::setLogSink([this](std::string_view line) {
    if (!line.starts_with("notarisation error: ")) return;
    session->enqueueNotarisation();
    notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  });
  notary->answer(nullptr, recoverableError());
  kvl::setLogSink(before);
  EXPECT_NE(session->signature(), nullptr);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(session->lastError(), std::nullopt);
  EXPECT_EQ(session->progress()->localizedDescription(), "Established");
}

TEST_F(SessionLifecycleTest, ProgressBeginsWithTheLocalSocketWithoutAPath) {
  create();
  EXPECT_EQ(session->progress()->state(),
            (ProgressState{1, 0, "Connecting\u2026", "Connecting to local notary socket"}));
}

TEST_F(SessionLifecycleTest, ProgressBeginsWithTheNotarysPath) {
  notary->setPath("/run/notary");
  create();
  EXPECT_EQ(session->progress()->state(),
            (ProgressState{1, 0, "Connecting\u2026", "Connecting to \"/run/notary\""}));
}

TEST_F(SessionLifecycleTest, ProgressSpeaksTheUsersLanguage) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  notary->setPath("/run/notary");
  create();
  EXPECT_EQ(session->progress()->state(),
            (ProgressState{1, 0, "Verbindung wird aufgebaut …",
                           "Verbindung zu „/run/notary“ wird aufgebaut"}));
  notary->answer(nullptr, recoverableError());
  EXPECT_EQ(session->progress()->localizedDescription(), "Verbindung wird wiederhergestellt …");
  EXPECT_THAT(session->progress()->state().localizedAdditionalDescription,
              testing::EndsWith(" – /run/notary\nNeuer Versuch alle 5 Sekunden"));
}

TEST_F(SessionLifecycleTest, SignatureEstablishesTheSession) {
  create();
  const auto signature = signatureEnding(queue->wallTime().adding(1000));
  notary->answer(signature);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(session->signature(), signature);
  EXPECT_NE(session->session(), nullptr);
  EXPECT_FALSE(session->awaitingSignature());
  EXPECT_EQ(session->progress()->state(),
            (ProgressState{1, 1, "Established", "Notarised for \"https://127.0.0.1:4321/base/\""}));
}

TEST_F(SessionLifecycleTest, RenewalMakesANewHTTPSSessionObjectAndOnlyLetsGoOfTheOld) {
  create();
  establish();
  queue->advance(800s);
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  EXPECT_NE(session->session(), nullptr);
  EXPECT_NE(session->session(), loader);
  EXPECT_EQ(loader->invalidations, 0);
}

struct DelayCase {
  const char* name;
  std::optional<double> remaining;
  double delay;
};

class RenewalDelayTest : public SessionFixture, public testing::WithParamInterface<DelayCase> {};

TEST_P(RenewalDelayTest, FollowsTheRemainingLifetime) {
  create();
  const auto& [name, remaining, delay] = GetParam();
  notary->answer(remaining ? signatureEnding(queue->wallTime().adding(*remaining))
                           : signatureFor("https://127.0.0.1:1/"));
  EXPECT_EQ(queue->takeDelays(), std::vector{delay});
}

INSTANTIATE_TEST_SUITE_P(
    Lifetimes, RenewalDelayTest,
    testing::Values(DelayCase{"HundredSeconds", 100, 80}, DelayCase{"OneSecondIsCutToZero", 1, 0},
                    DelayCase{"FractionsAreCut", 99, 79}, DelayCase{"EndsNow", 0, 15},
                    DelayCase{"AlreadyExpired", -5, 15}, DelayCase{"NoExpiry", std::nullopt, 15},
                    DelayCase{"AYear", 31536000, 25228800}),
    [](const auto& test) { return test.param.name; });

// How a completion leaves the session, from every state before it.
struct OutcomeCase {
  const char* name;
  bool signature;
  std::optional<kvl::Error> error;
  KVLSessionState state;
  double delay;
};

class OutcomeTest : public SessionFixture,
                    public testing::WithParamInterface<std::tuple<KVLSessionState, OutcomeCase>> {
 protected:
  // Brings the session into `state` by the events that lead there, with a call outstanding.
  void reach(KVLSessionState state) {
    create();
    if (state == KVLSessionStateConnecting) return;
    if (state == KVLSessionStateEstablished) establish();
    if (state == KVLSessionStateDisconnected) notary->answer(nullptr);
    if (state == KVLSessionStateRecovering) notary->answer(nullptr, recoverableError());
    ASSERT_EQ(session->state(), state);
    session->enqueueNotarisation();
    (void)queue->takeDelays();
  }
};

TEST_P(OutcomeTest, LeadsToTheStateAndTheDelayOfTheTable) {
  const auto& [before, outcome] = GetParam();
  ASSERT_NO_FATAL_FAILURE(reach(before));
  const auto signature =
      outcome.signature ? signatureEnding(queue->wallTime().adding(100)) : nullptr;
  const auto progressBefore = session->progress()->state();
  notary->answer(signature, outcome.error);
  EXPECT_EQ(session->state(), outcome.state);
  EXPECT_EQ(queue->takeDelays(), std::vector{outcome.delay});
  EXPECT_EQ(session->signature(), signature);
  EXPECT_EQ(session->session() != nullptr, outcome.signature);
  if (outcome.signature && !outcome.error) {
    EXPECT_EQ(session->progress()->completedUnitCount(), 1);
  }
  if (!outcome.signature && !outcome.error) {
    EXPECT_EQ(session->progress()->state(), progressBefore);
  }
  if (outcome.error) {
    EXPECT_EQ(session->progress()->completedUnitCount(), 0);
    EXPECT_EQ(session->progress()->totalUnitCount(), 1);
    EXPECT_EQ(session->progress()->localizedDescription(), "Reconnecting\u2026");
    EXPECT_EQ(log.lines().back(), "notarisation error: " + outcome.error->description());
  }
  if (before == KVLSessionStateEstablished) {
    EXPECT_EQ(loader->invalidations, outcome.signature ? 0 : 1);
  }
}

INSTANTIATE_TEST_SUITE_P(
    EveryStateByEveryOutcome, OutcomeTest,
    testing::Combine(
        testing::Values(KVLSessionStateConnecting, KVLSessionStateEstablished,
                        KVLSessionStateDisconnected, KVLSessionStateRecovering),
        testing::Values(
            OutcomeCase{"Signature", true, std::nullopt, KVLSessionStateEstablished, 80},
            OutcomeCase{"Neither", false, std::nullopt, KVLSessionStateDisconnected, 15},
            OutcomeCase{"Recoverable", false, recoverableError(), KVLSessionStateRecovering, 5},
            OutcomeCase{"Final", false, finalError(), KVLSessionStateDisconnected, 15},
            OutcomeCase{"BothRecoverable", true, recoverableError(), KVLSessionStateRecovering, 5},
            OutcomeCase{"BothFinal", true, finalError(), KVLSessionStateDisconnected, 15})),
    [](const auto& test) {
      return "From" + std::to_string(std::get<0>(test.param)) + std::get<1>(test.param).name;
    });

TEST_F(SessionLifecycleTest, SessionsWithoutANotaryMakeOneEach) {
  // Without an identifier the notaries make no keys, which would take time.
  const auto first = KVLSession::sessionWithNotary(nullptr, {});
  const auto second = KVLSession::sessionWithNotary(nullptr, {});
  ASSERT_NE(first->notary(), nullptr);
  EXPECT_NE(first->notary(), second->notary());
  EXPECT_NE(first->notary(), KVLNotary::sharedNotary());
  for (const auto& created : {first, second}) created->setNotary(notary);
}

TEST_F(SessionLifecycleTest, SignatureWithAnErrorPassesThroughTheEstablishedState) {
  create();
  std::vector<KVLSessionState> states;
  kvl::Semaphore recovering;
  const auto observation = session->observeState([&](KVLSessionState state) {
    states.push_back(state);
    if (state == KVLSessionStateRecovering) recovering.signal();
  });
  notary->answer(signatureFor("https://127.0.0.1:1/"), recoverableError());
  ASSERT_TRUE(recovering.waitFor(20s));
  EXPECT_EQ(states, (std::vector{KVLSessionStateConnecting, KVLSessionStateEstablished,
                                 KVLSessionStateRecovering}));
}

TEST_F(SessionLifecycleTest, TwoRequestsInARowStartOneNotarisation) {
  create();
  session->enqueueNotarisation();
  session->enqueueNotarisation();
  EXPECT_EQ(notary->calls(), 1U);
  notary->answer(nullptr);
  session->enqueueNotarisation();
  EXPECT_EQ(notary->calls(), 2U);
}

TEST_F(SessionLifecycleTest, TheTimerStartsTheNextNotarisation) {
  create();
  notary->answer(signatureEnding(queue->wallTime().adding(100)));
  queue->advance(79s);
  EXPECT_EQ(notary->calls(), 1U);
  queue->advance(1s);
  EXPECT_EQ(notary->calls(), 2U);
}

TEST_F(SessionLifecycleTest, RetryTextHoldsReasonPathAndInterval) {
  notary->setPath("/run/notary");
  create();
  notary->answer(nullptr, recoverableError());
  EXPECT_EQ(session->progress()->localizedAdditionalDescription(),
            std::string(strerror(ENOENT)) + " \u2013 /run/notary\nRetrying every 5 seconds");
}

TEST_F(SessionLifecycleTest, RetryTextFallsBackToTheErrorsFile) {
  create();
  notary->answer(nullptr, kvl::Error(kvl::NSPOSIXErrorDomain, ENOENT,
                                     {{kvl::NSFilePathErrorKey, "/var/lib/service.url"}}));
  EXPECT_EQ(
      session->progress()->localizedAdditionalDescription(),
      std::string(strerror(ENOENT)) + " \u2013 /var/lib/service.url\nRetrying every 5 seconds");
}

TEST_F(SessionLifecycleTest, RetryTextShowsNullWithoutReasonPathAndFile) {
  create();
  notary->answer(nullptr, finalError());
  EXPECT_EQ(session->progress()->localizedAdditionalDescription(),
            "(null) \u2013 (null)\nRetrying every 15 seconds");
}

TEST_F(SessionLifecycleTest, ForcedDisconnectDropsSignatureAndHTTPSSessionObject) {
  create();
  establish();
  const auto before = session->progress()->state();
  (void)queue->takeDelays();
  session->disconnectAfterError();
  EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
  EXPECT_EQ(session->signature(), nullptr);
  EXPECT_EQ(session->session(), nullptr);
  EXPECT_EQ(loader->invalidations, 1);
  EXPECT_TRUE(queue->takeDelays().empty());
  EXPECT_EQ(session->progress()->state(), before);
  EXPECT_FALSE(session->awaitingSignature());
}

TEST_F(SessionLifecycleTest, ForcedDisconnectLeavesAnOutstandingRequestAlone) {
  create();
  session->disconnectAfterError();
  EXPECT_TRUE(session->awaitingSignature());
  EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
}

TEST_F(SessionLifecycleTest, TimerKeepsTheSessionAlive) {
  create();
  establish();
  const std::weak_ptr<KVLSession> watch = session;
  session.reset();
  EXPECT_FALSE(watch.expired());
  queue->advance(800s);
  EXPECT_EQ(notary->calls(), 2U);
  EXPECT_FALSE(watch.expired());
  // Only a notary that never answers lets the session go.
  notary->drop();
  EXPECT_TRUE(watch.expired());
}

TEST_F(SessionLifecycleTest, DelegateIsHeldWeakly) {
  create();
  auto other = std::make_shared<Recorder>();
  session->setDelegate(other);
  EXPECT_EQ(session->delegate(), other);
  other.reset();
  EXPECT_EQ(session->delegate(), nullptr);
}

TEST_F(SessionLifecycleTest, StateObserversHearEnteredStatesInOrder) {
  create();
  std::vector<KVLSessionState> states;
  kvl::Semaphore last;
  const auto observation = session->observeState([&](KVLSessionState state) {
    states.push_back(state);
    if (state == KVLSessionStateDisconnected) last.signal();
  });
  establish();
  queue->advance(800s);
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));  // stays established
  session->disconnectAfterError();
  ASSERT_TRUE(last.waitFor(20s));
  EXPECT_EQ(states, (std::vector{KVLSessionStateConnecting, KVLSessionStateEstablished,
                                 KVLSessionStateDisconnected}));
}

}  // namespace
