// What a host sees when the clock is set, and when the machine has slept.
#include "tests/faults/FaultScene.h"
#include "tests/support/DrivenQueue.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Date.h>

#include <atomic>
#include <cmath>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

constexpr double kDay = 86'400;
// Of a certificate that is valid for an hour: four fifths, and the time until it is looked at.
constexpr double kUsual = 2880;
constexpr double kTolerance = 60;

class ClockFaults : public FaultScene {
 protected:
  ClockFaults() {
    environment().now = [shift = shift_] { return kvl::Date::now().adding(*shift); };
  }
  // Seconds between the host's clock and everybody else's.
  void setClock(double shift) { *shift_ = shift; }

  // The last timer that was set.
  void expectRetryAfterAbout(double seconds) const {
    EXPECT_TRUE(waitUntil([&] {
      const auto all = delays();
      return !all.empty() && std::abs(all.back() - seconds) < kTolerance;
    })) << testing::PrintToString(delays());
  }

 private:
  const std::shared_ptr<std::atomic<double>> shift_ = std::make_shared<std::atomic<double>>(0);
};

// Each certificate seems to be over. It serves nevertheless: the service is the judge.
TEST_F(ClockFaults, SetForwardTheHostRenewsOftenAndGoesOn) {
  begin();
  beginFault();
  setClock(kDay);
  ASSERT_NO_FATAL_FAILURE(renew());
  expectRetryAfter(15);
  expectAnswer(ask());
  endFault();
  setClock(0);
  expectRetryAfterAbout(kUsual);
  recover();
  EXPECT_EQ(statesSeen(), "established");
  EXPECT_EQ(progressSeen(), "Established");
  report("clock", "set forward");
}

// The renewal would come after the certificate's end. Then the service's refusal brings it.
TEST_F(ClockFaults, SetBackTheServicesRefusalBringsTheRenewal) {
  begin();
  beginFault();
  setClock(-kDay);
  restartNotary({"--lifetime", "-30"});
  ASSERT_NO_FATAL_FAILURE(renew());
  expectRetryAfterAbout((kDay - 30) * 0.8);
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorClientCertificateRejected);
  expectLog("notarisation error from request; enqueuing reconnection");
  expectRetryAfter(1);
  endFault();
  setClock(0);
  restartNotary();
  recover();
  expectRetryAfterAbout(kUsual);
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  report("clock", "set back");
}

// Timers count the time of the sleep, so all that are due meanwhile fire at the awakening, and the
// connection is dead.
TEST_F(ClockFaults, AfterASleepOneRenewalFollowsAtOnce) {
  auto timers = std::make_shared<DrivenQueue>();
  environment().frameworkQueue = [timers](const std::string&) { return timers; };
  begin();
  const auto port = servicePort();
  beginFault();
  stopService();
  startService({"--port", port});
  endFault();
  timers->advance(2h);
  recover();
  EXPECT_EQ(log.count("notary signature valid until"), 1U);
  timers->runDue();
  EXPECT_EQ(timers->pendingCount(), 1U);
  EXPECT_EQ(statesSeen(), "established");
  EXPECT_EQ(progressSeen(), "Established");
  report("clock", "suspended for two hours");
  timers->dropPending();  // which hold the session, which holds the queue
}

}  // namespace
