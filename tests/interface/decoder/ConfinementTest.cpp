// What a decoder that an image has taken over can and cannot do. Each attempt would succeed, or
// fail with another error, if nothing confined it.
#include "platform/interface/decoder/Sanitizer.h"
#include "tests/interface/decoder/DecoderFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

using ConfinementTest = kvltest::DecoderFixture;

std::string numberOfThisProcess() {
  return std::to_string(getpid());
}

TEST_F(ConfinementTest, FilesOfTheUserCannotBeRead) {
  if (hello().landlockVersion == 0) GTEST_SKIP() << "this system has no Landlock";
  EXPECT_EQ(tell("open " + secret()), EACCES);
  EXPECT_EQ(tell("list " + home()), EACCES);
  EXPECT_EQ(tell("open /etc/passwd"), EACCES);
  EXPECT_EQ(tell("open /proc/self/environ"), EACCES);
  EXPECT_EQ(tell("list /"), EACCES);
}

TEST_F(ConfinementTest, NoFileIsWrittenMadeOrRemoved) {
  for (const auto* what :
       {"write ", "change ", "make ", "empty ", "remove ", "mode ", "open-how "}) {
    EXPECT_EQ(tell(what + secret()), EPERM) << what;
  }
  EXPECT_EQ(tell("make " + home() + "/new"), EPERM);
  EXPECT_EQ(tell("hidden " + home()), EPERM);
  EXPECT_EQ(tell("folder " + home() + "/new"), EPERM);
  EXPECT_EQ(contentsOfHome(), "secret");
}

TEST_F(ConfinementTest, NothingIsConnected) {
  for (const auto* what : {"unix /run/dbus/system_bus_socket", "tcp", "udp", "netlink", "pair"}) {
    EXPECT_EQ(tell(what), EPERM) << what;
  }
}

TEST_F(ConfinementTest, NoProgramIsStarted) {
  EXPECT_EQ(tell("exec /bin/true"), EPERM);
  EXPECT_EQ(tell("exec-at /bin/true"), EPERM);
  EXPECT_EQ(tell("fork"), EPERM);
  EXPECT_EQ(tell("clone3"), ENOSYS);
  EXPECT_EQ(tell("executable"), EPERM);
  EXPECT_EQ(tell("make-executable"), EPERM);
}

TEST_F(ConfinementTest, OtherProcessesAreOutOfReach) {
  const auto host = numberOfThisProcess();
  for (const auto* what : {"ptrace ", "read-memory ", "kill ", "kill-thread ", "process ", "own ",
                           "priority ", "limit-of "}) {
    EXPECT_EQ(tell(what + host), EPERM) << what;
  }
}

TEST_F(ConfinementTest, LimitsStayAsTheyAre) {
  for (const auto* what : {"limit", "memory-limit", "outlive", "dump", "capabilities"}) {
    if (kvl::decoder::kSanitized && std::string_view(what) == "memory-limit") continue;
    EXPECT_EQ(tell(what), EPERM) << what;
  }
}

TEST_F(ConfinementTest, OtherPartsOfTheKernelAreOutOfReach) {
  for (const auto* what :
       {"unshare", "bpf", "ring", "key", "faults", "control", "mount", "memory-file"}) {
    EXPECT_EQ(tell(what), EPERM) << what;
  }
}

TEST_F(ConfinementTest, FontsCanBeReadAndThreadsStarted) {
  EXPECT_EQ(tell("open /etc/fonts/fonts.conf"), 0);
  EXPECT_EQ(tell("list /usr/share/fonts"), 0);
  EXPECT_EQ(tell("thread"), 0);
}

TEST_F(ConfinementTest, NothingIsInheritedButTheSocket) {
  EXPECT_EQ(tell("descriptors"), 4) << "input, output, errors and the socket";
}

}  // namespace
