// What a host sees of a notary that fails, and that nothing of it stays.
#include "platform/ipc/BusTransport.h"
#include "tests/faults/FaultScene.h"

#include <local/platform/Security.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

constexpr auto kLostAndFound = "established, disconnected, established";
constexpr auto kTold = "Established, Reconnecting\u2026, Established";

class NotaryFaults : public FaultScene {
 protected:
  // The signature goes with the renewal that fails, and with it the host's answers.
  void expectDisconnected() { expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown); }
};

TEST_F(NotaryFaults, AbsentOneIsFoundOnceItIsThere) {
  begin();
  beginFault();
  notary().kill();
  session->enqueueNotarisation();
  expectLog("notarisation error: Error Domain=NSCocoaErrorDomain Code=4099");
  expectRetryAfter(15);
  expectDisconnected();
  endFault();
  startNotary();
  recover();
  EXPECT_EQ(statesSeen(), kLostAndFound);
  EXPECT_EQ(progressSeen(), kTold);
  report("notary", "absent");
}

TEST_F(NotaryFaults, WhileOneHangsTheIdentityGoesOnServing) {
  begin();
  beginFault();
  notary().signal(SIGSTOP);
  session->enqueueNotarisation();
  expectAnswer(ask());
  EXPECT_TRUE(session->awaitingSignature());
  endFault();
  notary().signal(SIGCONT);
  recover();
  EXPECT_EQ(statesSeen(), "established");
  EXPECT_EQ(progressSeen(), "Established");
  report("notary", "hanging");
}

// After two minutes; here after less.
TEST_F(NotaryFaults, OneThatGoesOnHangingIsGivenUp) {
  const auto limit = std::make_shared<std::atomic<std::chrono::milliseconds>>(
      kvl::ipc::BusOptions().replyTimeLimit);
  environment().serviceConnection = [limit](const std::string& name) {
    kvl::ipc::BusOptions options;
    options.replyTimeLimit = *limit;
    return makeBusConnection(name, options);
  };
  begin();
  beginFault();
  notary().signal(SIGSTOP);
  *limit = 300ms;
  session->enqueueNotarisation();
  expectLog("notarisation error: Error Domain=NSPOSIXErrorDomain Code=60");
  expectRetryAfter(5);
  expectDisconnected();
  endFault();
  *limit = kvl::ipc::kReplyTimeLimit;
  notary().signal(SIGCONT);
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, recovering, established");
  EXPECT_EQ(progressSeen(), kTold);
  report("notary", "hanging for ever");
}

TEST_F(NotaryFaults, OneThatIsKilledInMidCallIsAskedAgain) {
  begin();
  beginFault();
  restartNotary({"--fault", "hang"});
  session->enqueueNotarisation();
  ASSERT_TRUE(waitForNotaryLog("request left without an answer"));
  notary().kill();
  expectLog("xpc notary interrupted");
  expectLog("notarisation error: Error Domain=NSCocoaErrorDomain Code=4097");
  expectRetryAfter(15);
  expectDisconnected();
  endFault();
  startNotary();
  recover();
  EXPECT_EQ(statesSeen(), kLostAndFound);
  EXPECT_EQ(progressSeen(), kTold);
  report("notary", "killed in mid-call");
}

TEST_F(NotaryFaults, RubbishIsNoAnswer) {
  begin();
  beginFault();
  restartNotary({"--fault", "rubbish"});
  session->enqueueNotarisation();
  expectLog("notarisation error: Error Domain=NSCocoaErrorDomain Code=4101");
  expectRetryAfter(15);
  expectDisconnected();
  endFault();
  restartNotary();
  recover();
  EXPECT_EQ(statesSeen(), kLostAndFound);
  EXPECT_EQ(progressSeen(), kTold);
  report("notary", "answering rubbish");
}

TEST_F(NotaryFaults, ErrorsOfItsOwnAreRecoverable) {
  begin();
  beginFault();
  restartNotary({"--fault", "error"});
  session->enqueueNotarisation();
  expectLog(kvl::format("notarisation error: Error Domain=NSPOSIXErrorDomain Code=%ld", EIO));
  expectRetryAfter(5);
  expectDisconnected();
  endFault();
  restartNotary();
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, recovering, established");
  EXPECT_EQ(progressSeen(), kTold);
  report("notary", "answering errors");
}

// What it issues counts as an identity until the service has refused it.
TEST_F(NotaryFaults, CertificateThatIsOverIsRefusedByTheService) {
  begin();
  beginFault();
  restartNotary({"--lifetime", "-30"});
  renew();
  expectRetryAfter(15);
  // A renewal just before the refusal would make that one of the identity before.
  holdRetries();
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorClientCertificateRejected);
  expectLog("notarisation error from request; enqueuing reconnection");
  expectRetryAfter(1);
  endFault();
  restartNotary();
  recover();
  EXPECT_EQ(statesSeen(), kLostAndFound);
  report("notary", "certificate already over");
}

TEST_F(NotaryFaults, CertificateOfAnotherKeyIsNoIdentity) {
  begin();
  beginFault();
  restartNotary({"--fault", "other-key"});
  renew();
  expectLog(kvl::format("client identity error: Error Domain=NSPOSIXErrorDomain Code=%ld",
                        kvl::errSecItemNotFound));
  EXPECT_EQ(session->signature()->identity(), nullptr);
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorClientCertificateRequired);
  expectLog("\u2026no client certificate available for authentication");
  expectRetryAfter(1);
  endFault();
  restartNotary();
  recover();
  EXPECT_EQ(statesSeen(), kLostAndFound);
  report("notary", "certificate of another key");
}

}  // namespace
