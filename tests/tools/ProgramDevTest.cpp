// The command dev: a bus, the notary and the service of the program's own.
#include "tests/support/WaitUntil.h"
#include "tests/tools/ProgramFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

// The end of a shell's script that only signals are to end. Without the program that has started it
// nobody would, so it ends with that.
const std::string kGoesOn = "while kill -0 $PPID 2>/dev/null; do sleep 0.02; done";

class DevTest : public ProgramTest {
 protected:
  DevTest() {
    std::filesystem::create_directory(temporary());
    environment.push_back("TMPDIR=" + temporary().string());
  }

  // Where the program makes its folders.
  [[nodiscard]] std::filesystem::path temporary() const { return directory.path() / "t m'p<&"; }

  Outcome runWith(const std::string& script) { return run({"dev", "--", "sh", "-c", script}); }

  // What the program tells of the bus, once all of them are there; from now on others use that bus.
  void useBusOf(RunningProgram& program) {
    const std::string line = program.readLine();
    const auto begin = line.find('\'') + 1;
    ASSERT_THAT(line, StartsWith("export DBUS_SESSION_BUS_ADDRESS='unix:path="));
    useBus(line.substr(begin, line.rfind('\'') - begin));
  }

  [[nodiscard]] bool isEmpty() const { return std::filesystem::is_empty(temporary()); }
};

// The processes that a program has started, oldest first.
std::vector<pid_t> childrenOf(pid_t process) {
  const std::string id = std::to_string(process);
  std::ifstream file("/proc/" + id + "/task/" + id + "/children");
  return {std::istream_iterator<pid_t>(file), {}};
}

// Whether the program has looked at all signals that it was sent.
bool hasTakenSignals(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.find("ShdPnd:\t0000000000000000\n") != std::string::npos;
}

// As ps shows it; nothing when there is none.
char stateOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const auto name = text.rfind(')');
  return name == std::string::npos ? '\0' : text[name + 2];
}

// Processes that nobody has waited for yet have ended all the same.
bool hasEnded(pid_t process) {
  const char state = stateOf(process);
  return state == '\0' || state == 'Z';
}

TEST_F(DevTest, AProgramFindsNotaryAndService) {
  const Outcome outcome = run({"dev", "--", KVLOCAL_PROGRAM, "get", "/code?status=200&body=here"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "here");
  EXPECT_THAT(outcome.errors, IsEmpty());
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, ItEndsAsTheProgramEnds) {
  EXPECT_EQ(runWith("exit 7").exitCode, 7);
  EXPECT_EQ(runWith("kill -KILL $$").exitCode, 128 + SIGKILL);
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, AProgramThatIsNotThereIsTold) {
  const Outcome missing = run({"dev", "--", "./no-such-program", "--flag"});
  EXPECT_EQ(missing.exitCode, 127);
  EXPECT_EQ(missing.errors,
            "kvlocal: \"./no-such-program\" cannot be started: No such file or directory\n");
  EXPECT_EQ(run({"dev", "--", directory.path()}).exitCode, 126);
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, AProgramHasItsOwnArgumentsAndInput) {
  const Outcome outcome = runInShell(
      "echo typed | \"$0\" dev -- sh -c 'read -r line; echo \"$line $*\" >&2' sh --json status -x");
  EXPECT_EQ(outcome.errors, "typed --json status -x\n");
}

// Neither descriptors nor what is done to signals are passed on.
TEST_F(DevTest, AProgramBeginsAsInAShell) {
  const std::string script =
      "ls /proc/self/fd; grep SigBlk /proc/self/status; exec env -i cat /proc/self/cmdline";
  const Outcome direct = runInShell("{ " + script + "; } >&2");
  EXPECT_THAT(direct.errors, HasSubstr("SigBlk:\t0000000000000000\n"));
  EXPECT_EQ(runWith(script).output, direct.errors);
  EXPECT_EQ(runWith("kill -PIPE $$").exitCode, 128 + SIGPIPE);
}

TEST_F(DevTest, OtherProgramsUseThemUntilTheUserEndsIt) {
  RunningProgram program = launch({"dev"});
  useBusOf(program);
  EXPECT_THAT(program.readLine(), MatchesRegex("# service: https://127\\.0\\.0\\.1:[0-9]+/"));
  EXPECT_THAT(program.readLine(), StartsWith("# state: \"" + temporary().string()));
  const auto children = childrenOf(program.process().id());
  EXPECT_EQ(children.size(), 3U);
  {
    RunningProgram host = launch({"get", "/code?status=200&body=here"});
    EXPECT_EQ(host.readAll(), "here");
    EXPECT_EQ(host.wait(), 0);
  }
  program.process().signal(SIGINT);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_TRUE(isEmpty());
  for (const pid_t child : children) EXPECT_TRUE(hasEnded(child));
}

TEST_F(DevTest, TheEnvironmentIsJSONWhenThatIsWanted) {
  RunningProgram program = launch({"dev", "--json"});
  EXPECT_THAT(program.readLine(),
              AllOf(StartsWith(R"({"environment":{"DBUS_SESSION_BUS_ADDRESS":"unix:path=/)"),
                    HasSubstr(R"("},"service":"https://127.0.0.1:)"), HasSubstr(R"("state":")")));
  program.process().signal(SIGTERM);
  EXPECT_EQ(program.wait(), 0);
}

TEST_F(DevTest, SignalsButTheTerminalsArePassedOn) {
  RunningProgram program =
      launch({"dev", "--", "sh", "-c", "trap 'echo ended; exit 3' TERM; echo begun; " + kGoesOn});
  EXPECT_EQ(program.readLine(), "begun");
  program.process().signal(SIGTERM);
  EXPECT_EQ(program.readLine(), "ended");
  EXPECT_EQ(program.wait(), 3);
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, ASignalThatIsOnlyTheTerminalsIsNotPassedOn) {
  RunningProgram program =
      launch({"dev", "--", "sh", "-c",
              "trap 'echo interrupted' INT; trap 'exit 3' HUP; echo begun; " + kGoesOn});
  EXPECT_EQ(program.readLine(), "begun");
  for (int i = 0; i < 3; ++i) {
    program.process().signal(SIGINT);
    EXPECT_TRUE(waitUntil([&] { return hasTakenSignals(program.process().id()); }));
  }
  program.process().signal(SIGHUP);
  EXPECT_EQ(program.readAll(), "");
  EXPECT_EQ(program.wait(), 3);
  EXPECT_TRUE(isEmpty());
}

// As in a terminal, where Ctrl-C reaches all of them.
TEST_F(DevTest, ACommandMayGoOnAfterEachInterrupt) {
  RunningProgram program = launchInShell(
      "exec setsid \"$0\" dev -- sh -c \"trap 'echo interrupted' INT; trap 'exit 4' TERM; "
      "echo begun; while kill -0 \\$PPID 2>/dev/null; do sleep 0.02; done\"");
  EXPECT_EQ(program.readLine(), "begun");
  const pid_t group = program.process().id();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(kill(-group, SIGINT), 0);
    ASSERT_EQ(program.readLine(), "interrupted");
    EXPECT_TRUE(waitUntil([&] { return hasTakenSignals(group); }));
  }
  program.process().signal(SIGTERM);
  EXPECT_EQ(program.wait(), 4);
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, TheSecondSignalToEndKillsTheCommand) {
  RunningProgram program =
      launch({"dev", "--", "sh", "-c", "trap 'echo told' TERM; echo begun; " + kGoesOn});
  EXPECT_EQ(program.readLine(), "begun");
  program.process().signal(SIGTERM);
  EXPECT_EQ(program.readLine(), "told");
  program.process().signal(SIGTERM);
  EXPECT_EQ(program.wait(), 128 + SIGKILL);
  EXPECT_TRUE(isEmpty());
}

// A terminal's window that is closed hangs up twice, and may do so after another signal.
TEST_F(DevTest, AHangUpThatComesAgainLeavesTheCommandItsTime) {
  RunningProgram program =
      launch({"dev", "--", "sh", "-c",
              "trap 'echo hung up' HUP; trap 'echo told' TERM; echo begun; " + kGoesOn});
  EXPECT_EQ(program.readLine(), "begun");
  for (const int number : {SIGHUP, SIGHUP, SIGTERM, SIGHUP}) {
    program.process().signal(number);
    ASSERT_EQ(program.readLine(), number == SIGHUP ? "hung up" : "told");
  }
  program.process().signal(SIGTERM);
  EXPECT_EQ(program.wait(), 128 + SIGKILL);
  EXPECT_TRUE(isEmpty());
}

// The key of the notary's authority is in the folder that would stay.
TEST_F(DevTest, NothingStaysWhenNobodyReadsWhereTheyAre) {
  RunningProgram program = launchInShell("head -c 65536 /dev/zero; exec \"$0\" --verbose dev");
  ASSERT_TRUE(program.waitUntilBlocked());
  ASSERT_TRUE(waitUntil([this] { return errors().find(" claimed ") != std::string::npos; }));
  EXPECT_FALSE(isEmpty());
  // One that comes while the first is dealt with is the same one to the kernel.
  EXPECT_TRUE(waitUntil([&] {
    program.process().signal(SIGTERM);
    return program.hasEnded();
  }));
  EXPECT_EQ(program.wait(), 0);
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, HoweverOftenItIsEndedNothingStays) {
  RunningProgram program = launch({"dev"});
  program.readUntil("# state: ");
  program.readLine();
  // It has written everything, so it sleeps only when it waits for its end.
  EXPECT_TRUE(waitUntil([&] { return stateOf(program.process().id()) == 'S'; }));
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) program.process().signal(number);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_TRUE(isEmpty());
}

// It ends late enough for all of the signals to come before that.
TEST_F(DevTest, NorWhenTheBusIsNotThereYet) {
  const auto bus = directory.path() / "dbus-daemon";
  std::ofstream(bus) << "#!/bin/sh\ntrap 'sleep 0.2; exit' TERM; : >\"$0.begun\"; " + kGoesOn +
                            "\n";
  std::filesystem::permissions(bus, std::filesystem::perms::owner_all);
  environment.push_back("PATH=" + directory.path().string() + ":/usr/bin:/bin");
  RunningProgram program = launch({"dev"});
  EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(bus.string() + ".begun"); }));
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) program.process().signal(number);
  EXPECT_EQ(program.wait(), 130);
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, NothingRunsOnWhenItIsKilled) {
  RunningProgram program = launch({"dev", "--", "sh", "-c", "echo begun; " + kGoesOn});
  EXPECT_EQ(program.readLine(), "begun");
  const auto children = childrenOf(program.process().id());
  EXPECT_EQ(children.size(), 4U);
  program.process().signal(SIGKILL);
  EXPECT_EQ(program.wait(), -SIGKILL);
  (void)waitUntil([&] { return std::ranges::all_of(children, hasEnded); });
  for (const pid_t child : children) {
    if (hasEnded(child)) continue;
    ADD_FAILURE() << child << " runs on";
    kill(child, SIGKILL);
  }
}

TEST_F(DevTest, StateAndDocumentsMayBeTheUsersOwn) {
  const auto state = directory.path() / "state";
  const auto documents = directory.path() / "documents";
  std::filesystem::create_directory(documents);
  std::ofstream(documents / "a.txt") << "document";
  const Outcome first = run(
      {"dev", "--state", state, "--documents", documents, "--", KVLOCAL_PROGRAM, "get", "/a.txt"});
  EXPECT_EQ(first.output, "document") << first.errors;
  const std::string authority = fileText("state/ca.pem");
  EXPECT_THAT(authority, HasSubstr("BEGIN CERTIFICATE"));
  EXPECT_EQ(run({"dev", "--state", state, "--", KVLOCAL_PROGRAM, "status"}).exitCode, 0);
  EXPECT_EQ(fileText("state/ca.pem"), authority);
}

TEST_F(DevTest, WhatDoesNotStartIsTold) {
  const Outcome noBus = runInShell("PATH=/nonexistent \"$0\" dev --json");
  EXPECT_EQ(noBus.exitCode, 8);
  EXPECT_THAT(noBus.errors,
              HasSubstr("dbus-daemon cannot be started: No such file or directory\n"));
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, WhatEndsInsteadOfServingIsToldWithItsLastWords) {
  const Outcome outcome = run({"dev", "--state", "/proc/no-such-folder", "--", "echo", "here"});
  EXPECT_EQ(outcome.exitCode, 8);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors,
              AllOf(StartsWith("kvlocal: kvlocal-devservice has ended: "),
                    HasSubstr("/proc/no-such-folder: No such file or directory\n")));
}

TEST_F(DevTest, APeerThatEndsByItselfEndsIt) {
  RunningProgram program = launch({"dev"});
  useBusOf(program);
  kill(childrenOf(program.process().id()).at(2), SIGTERM);
  EXPECT_EQ(program.wait(), 8);
  EXPECT_THAT(errors(), AllOf(StartsWith("kvlocal: kvlocal-devnotary has ended: "),
                              HasSubstr("ended by a signal\n")));
  EXPECT_TRUE(isEmpty());
}

TEST_F(DevTest, AProgramOutlivesItsPeers) {
  RunningProgram program =
      launch({"dev", "--", "sh", "-c", "trap 'exit 5' TERM; echo begun; " + kGoesOn});
  EXPECT_EQ(program.readLine(), "begun");
  kill(childrenOf(program.process().id()).at(1), SIGKILL);
  EXPECT_TRUE(waitUntil([this] { return !errors().empty(); }));
  EXPECT_THAT(errors(), StartsWith("kvlocal: kvlocal-devservice has ended: "));
  program.process().signal(SIGTERM);
  EXPECT_EQ(program.wait(), 5);
}

TEST_F(DevTest, WhatTheySayIsShownWhenThatIsWanted) {
  EXPECT_THAT(run({"--verbose", "dev", "--", "true"}).errors,
              AllOf(HasSubstr("kvlocal: dbus-daemon: unix:path="),
                    HasSubstr(" kvlocal-devservice: listening on https://"),
                    HasSubstr(" kvlocal-devnotary: claimed ")));
}

}  // namespace
}  // namespace kvltest
