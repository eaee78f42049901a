// Whatever the notary does, the session is established again once the cause is gone.
#include "tests/integration/LocalService.h"
#include "tests/support/ImpatientQueue.h"

#include <algorithm>
#include <cerrno>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

struct FaultCase {
  const char* name;
  const char* options;  // of the notary, which misbehaves for its first requests
  const char* domain;
  std::int64_t code;
  KVLSessionState state;
  double delay;
};

class NotaryFaultTest : public LocalService, public testing::WithParamInterface<FaultCase> {};

TEST_P(NotaryFaultTest, IsReportedAndRecoveredFrom) {
  const auto& fault = GetParam();
  offerNotary(fault.options);
  startService();
  const auto queue = std::make_shared<ImpatientQueue>();
  createSession();
  session->setQueue(queue);
  ASSERT_TRUE(log.waitFor(
      kvl::format("notarisation error: Error Domain=%@ Code=%ld", fault.domain, fault.code), 1,
      kPatience))
      << testing::PrintToString(log.lines());
  ASSERT_TRUE(states->waitFor(fault.state));
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
  EXPECT_EQ(get("status").status(), 200);
  // The first timer may have been set on the session's own queue.
  const auto delays = queue->delays();
  EXPECT_NE(std::ranges::find(delays, fault.delay), delays.end());
  for (const auto delay : delays) EXPECT_TRUE(delay == fault.delay || delay > 60) << delay;
}

INSTANTIATE_TEST_SUITE_P(
    Faults, NotaryFaultTest,
    testing::Values(FaultCase{"ErrorOfItsOwn", "--fault error --fault-count 2",
                              "NSPOSIXErrorDomain", EIO, KVLSessionStateRecovering, 5},
                    FaultCase{"ReplyWithoutURL", "--fault no-url --fault-count 2",
                              "NSPOSIXErrorDomain", -1002, KVLSessionStateRecovering, 5},
                    FaultCase{"EmptyReply", "--fault empty --fault-count 2", "NSPOSIXErrorDomain",
                              -1002, KVLSessionStateRecovering, 5},
                    FaultCase{"BadAnchor", "--fault bad-anchor --fault-count 2",
                              "NSPOSIXErrorDomain", kvl::errSecDecode, KVLSessionStateRecovering,
                              5},
                    FaultCase{"Rubbish", "--fault rubbish --fault-count 2", "NSCocoaErrorDomain",
                              4101, KVLSessionStateDisconnected, 15}),
    [](const auto& test) { return test.param.name; });

class NotaryFailureTest : public LocalService {};

TEST_F(NotaryFailureTest, AbsentNotaryIsFoundOnceItIsThere) {
  startService();
  createSession();
  session->setQueue(std::make_shared<ImpatientQueue>());
  ASSERT_TRUE(states->waitFor(KVLSessionStateDisconnected));
  EXPECT_TRUE(log.waitFor("notarisation error: Error Domain=NSCocoaErrorDomain Code=4099"));
  offerNotary();
  session->enqueueNotarisation();
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
  EXPECT_EQ(get("status").status(), 200);
}

TEST_F(NotaryFailureTest, NotaryThatExitsInMidCallIsActivatedAgain) {
  offerNotary("--fault exit --fault-count 1");
  startService();
  createSession();
  ASSERT_TRUE(log.waitFor("xpc notary interrupted", 1, kPatience));
  ASSERT_TRUE(states->waitFor(KVLSessionStateDisconnected));
  EXPECT_TRUE(log.waitFor("notarisation error: Error Domain=NSCocoaErrorDomain Code=4097"));
  bus.removeService(kNotaryName);
  offerNotary();
  session->enqueueNotarisation();
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
}

TEST_F(NotaryFailureTest, CallerIsNeverBlockedByANotaryThatHangs) {
  offerNotary("--fault hang");
  startService();
  const auto notary = KVLNotary::notaryWithPath(std::nullopt);
  const auto start = std::chrono::steady_clock::now();
  session = KVLSession::sessionWithNotary(notary, {});
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
  EXPECT_TRUE(session->awaitingSignature());
  EXPECT_EQ(session->state(), KVLSessionStateConnecting);
}

TEST_F(NotaryFailureTest, KeyStoreThatHangsIsPassedOver) {
  offerNotary();
  startService();
  bus.freezeKeyring();
  establish();
  EXPECT_NE(session->signature()->identity(), nullptr);
  EXPECT_EQ(get("status").status(), 200);
  bus.thawKeyring();
}

TEST_F(NotaryFailureTest, ServiceThatIsNotRunningIsNamedToTheUser) {
  offerNotary();
  createSession();
  ASSERT_TRUE(states->waitFor(KVLSessionStateRecovering));
  ASSERT_TRUE(log.waitFor("notarisation error", 1, kPatience));
  const auto file = (stateDirectory() / "service.url").string();
  // The text follows the state; nothing else comes between.
  while (session->progress()->localizedDescription() != "Reconnecting\u2026") {
    std::this_thread::yield();
  }
  EXPECT_NE(session->progress()->localizedAdditionalDescription().find(file), std::string::npos)
      << session->progress()->localizedAdditionalDescription();
}

}  // namespace
