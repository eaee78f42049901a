// What a host sees of a notary that fails, and that nothing of it stays.
#include "tests/faults/FaultScene.h"

#include <csignal>

namespace {

using namespace kvltest;

class NotaryFaults : public FaultScene {};

TEST_F(NotaryFaults, Absent) {
  begin();
  beginFault();
  notary().kill();
  session->enqueueNotarisation();
  expectLog("notarisation error: Error Domain=NSCocoaErrorDomain Code=4099");
  expectRetryAfter(15);
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown);
  endFault();
  startNotary();
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  EXPECT_EQ(progressSeen(), "Established, Reconnecting\u2026, Established");
  report("notary", "absent");
}

// The identity goes on serving while its renewal waits.
TEST_F(NotaryFaults, Hanging) {
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

}  // namespace
