// What a host sees of a session bus that goes.
#include "tests/faults/FaultScene.h"

namespace {

using namespace kvltest;

class BusFaults : public FaultScene {};

// Nothing but a renewal needs it.
TEST_F(BusFaults, AnswersGoOnWithoutABusUntilTheRenewal) {
  begin();
  beginFault();
  bus.stop();
  expectAnswer(ask());
  EXPECT_EQ(statesSeen(), "established");
  session->enqueueNotarisation();
  expectLog("notarisation error: Error Domain=NSCocoaErrorDomain Code=4099");
  expectRetryAfter(15);
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown);
  endFault();
  bus.restart();
  bus.startKeyring();
  startNotary();
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  EXPECT_EQ(progressSeen(), "Established, Reconnecting\u2026, Established");
  report("bus", "gone and back");
}

}  // namespace
