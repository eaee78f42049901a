// Two copies of a host share a key store, and neither takes the other's key.
#include "tests/faults/FaultScene.h"
#include "tests/support/FolderWait.h"

#include <local/platform/HostApplication.h>

#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <sstream>

namespace {

using namespace kvltest;

class SecondHostFaults : public FaultScene {
 protected:
  void startSecond() {
    const auto file = bus.directory() / "second.log";
    second = ChildProcess({KVL_SECOND_HOST, kvl::hostIdentifier().value_or("")},
                          environmentWith({}), file);
    ASSERT_TRUE(waitForFolder(bus.directory(), second, [&file] {
      std::ostringstream text;
      text << std::ifstream(file).rdbuf();
      return text.str().find("second host established") != std::string::npos;
    }));
  }
  // With the key that it has.
  void expectRenewal() {
    ASSERT_NO_FATAL_FAILURE(renew());
    EXPECT_NE(session->signature()->identity(), nullptr);
    expectAnswer(ask());
  }
  void expectNothingWasLost() {
    recover();
    EXPECT_EQ(log.count("client identity error"), 0U);
    EXPECT_EQ(statesSeen(), "established");
    EXPECT_EQ(progressSeen(), "Established");
  }

  ChildProcess second;
};

TEST_F(SecondHostFaults, OneThatEndsLeavesTheFirstItsKey) {
  begin();
  beginFault();
  ASSERT_NO_FATAL_FAILURE(startSecond());
  expectRenewal();
  endFault();
  second.signal(SIGTERM);
  const int status = second.wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  expectRenewal();
  expectNothingWasLost();
  report("second copy", "started and ended");
}

TEST_F(SecondHostFaults, OneThatIsKilledLeavesTheFirstItsKey) {
  begin();
  beginFault();
  ASSERT_NO_FATAL_FAILURE(startSecond());
  endFault();
  second.kill();
  expectRenewal();
  ASSERT_NO_FATAL_FAILURE(startSecond());  // which deletes what the killed one has left
  expectRenewal();
  second.signal(SIGTERM);
  (void)second.wait();
  expectNothingWasLost();
  report("second copy", "killed and started again");
}

}  // namespace
