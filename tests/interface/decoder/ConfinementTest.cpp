// What a decoder that an image has taken over can and cannot do. Each attempt would succeed, or
// fail with another error, if nothing confined it.
#include "platform/interface/decoder/Sanitizer.h"
#include "tests/interface/decoder/DecoderFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using ConfinementTest = kvltest::DecoderFixture;

TEST_F(ConfinementTest, FilesOfTheUserCannotBeRead) {
  if (kvltest::kernelsLandlock() == 0) GTEST_SKIP() << "this system has no Landlock";
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
  for (const auto& process : {std::to_string(getpid()), std::to_string(decoder().process())}) {
    for (const std::string what : {"ptrace ", "read-memory ", "kill ", "kill-thread ", "process ",
                                   "own ", "priority ", "limit-of "}) {
      EXPECT_EQ(tell(what + process), EPERM) << what;
    }
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

// What the kernel says of a process under a name, without what stands around it.
std::string saidOf(pid_t process, const std::string& file, const std::string& name) {
  std::ifstream lines("/proc/" + std::to_string(process) + "/" + file);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(name)) continue;
    std::istringstream words(line.substr(name.size()));
    std::string first;
    std::string second;
    words >> first >> second;
    return file == "limits" ? first.append(" ").append(second) : first;
  }
  return "nothing";
}

TEST_F(ConfinementTest, TheKernelSaysTheSame) {
  const auto process = worker().process();
  EXPECT_EQ(saidOf(process, "limits", "Max open files"), "32 32");
  EXPECT_EQ(saidOf(process, "limits", "Max file size"), "0 0");
  EXPECT_EQ(saidOf(process, "limits", "Max core file size"), "0 0");
  EXPECT_EQ(saidOf(process, "limits", "Max cpu time"), "25 25");
  EXPECT_EQ(saidOf(process, "oom_score_adj", ""), "800");
  for (const auto* sets : {"CapPrm:", "CapEff:", "CapInh:"}) {
    EXPECT_EQ(saidOf(process, "status", sets), "0000000000000000") << sets;
  }
  EXPECT_EQ(saidOf(process, "status", "NoNewPrivs:"), "1");
  EXPECT_EQ(saidOf(process, "status", "Seccomp:"), "2");
  EXPECT_EQ(saidOf(process, "status", "Threads:"), "1");
}

}  // namespace
