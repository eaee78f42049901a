// What the program does while an answer is on its way.
#include "tests/support/FolderWait.h"
#include "tests/support/WaitUntil.h"
#include "tests/tools/ServiceFixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace kvltest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int kPatience = 60;  // seconds
constexpr auto kEndless = "/slow?ms=600000";

class WaitingTest : public ServiceTest {
 protected:
  // The commands that wait for an answer from `path`.
  std::vector<Arguments> commands(const std::string& path) const {
    return {{"get", path},
            {"submit", path, "--data", file("document.json", "{}")},
            {"form", path, "--input", "a=b"},
            {"image", path}};
  }

  // Runs a command with a limit that an identity can be had in.
  Outcome runWithTimeout(const Arguments& command) {
    constexpr int kNotEstablished = 3;
    for (int seconds = 1;; seconds *= 2) {
      Arguments arguments = command;
      arguments.insert(arguments.end(), {"--timeout", std::to_string(seconds)});
      Outcome outcome = run(arguments);
      if (outcome.exitCode != kNotEstablished || seconds > kPatience) return outcome;
    }
  }

  // Waits until the program has written `part` to its standard error.
  [[nodiscard]] bool waitForErrors(const RunningProgram& program, const std::string& part) const {
    return waitForFolder(directory.path(), program.process(),
                         [&] { return errors().find(part) != std::string::npos; });
  }
};

TEST_F(WaitingTest, InterruptEndsIt) {
  int requests = 0;
  for (const Arguments& command : commands(kEndless)) {
    RunningProgram program = launch(command);
    ASSERT_TRUE(waitForServiceLog("slow: the answer waits", ++requests));
    program.process().signal(SIGINT);
    EXPECT_EQ(program.wait(), 130) << command.front();
    EXPECT_THAT(program.readAll(), IsEmpty());
  }
}

TEST_F(WaitingTest, InterruptEndsReadingAFileThatDoesNotEnd) {
  const std::string path = directory.path() / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int fifo = open(path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(write(fifo, "{", 1), 1);
  RunningProgram program = launch({"submit", "/echo", "--data", path});
  // Whoever has read it sees signals.
  EXPECT_TRUE(waitUntil([fifo] {
    int waiting = 1;
    return ioctl(fifo, FIONREAD, &waiting) == 0 && waiting == 0;
  }));
  program.process().signal(SIGINT);
  EXPECT_EQ(program.wait(), 130);
  close(fifo);
}

TEST_F(WaitingTest, TimeoutLimitsTheWholeAnswer) {
  for (const Arguments& command : commands(kEndless)) {
    const Outcome outcome = runWithTimeout(command);
    EXPECT_EQ(outcome.exitCode, 4) << command.front();
    EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the request failed: "));
    EXPECT_THAT(outcome.output, IsEmpty());
  }
}

// Patient enough for a busy machine, and less so than the 15 seconds in which a session by itself
// asks the notary again.
constexpr auto kWaits = "12";

TEST_F(WaitingTest, ANotaryThatAppearsLaterIsSeen) {
  stopNotary();
  RunningProgram program = launch({"get", kDocument, "--timeout", kWaits, "--verbose"});
  EXPECT_TRUE(waitForErrors(program, "notarisation error: "));
  restartNotary({});
  EXPECT_EQ(program.readAll(), kDocumentBytes);
  EXPECT_EQ(program.wait(), 0) << errors();
}

TEST_F(WaitingTest, AServiceThatAppearsLaterIsSeen) {
  for (const Arguments& command : commands("/echo")) {
    const bool isImage = command.front() == "image";
    Arguments arguments = isImage ? Arguments{"image", "/image"} : command;
    arguments.insert(arguments.end(), {"--timeout", std::to_string(kPatience), "--verbose"});
    killService();
    RunningProgram program = launch(arguments);
    EXPECT_TRUE(waitForErrors(program, "error from request: ")) << command.front();
    restartService();
    EXPECT_EQ(program.wait(), 0) << command.front() << errors();
  }
}

TEST_F(WaitingTest, WhatTheServiceSentElsewhereIsNotSentToItAgain) {
  const std::string path = directory.path() / "document.json";
  std::ofstream(path) << "{}";
  const Outcome outcome = run({"submit", "/redirect?status=307&to=https%3A%2F%2F127.0.0.1%3A1%2F",
                               "--data", path, "--timeout", kWaits, "--verbose"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, HasSubstr("[NSURLErrorDomain -1004]"));
  const auto first = outcome.errors.find("error from request: ");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(outcome.errors.find("error from request: ", first + 1), std::string::npos)
      << outcome.errors;
}

TEST_F(WaitingTest, AServiceThatDoesNotAppearIsToldAtTheEnd) {
  killService();
  const Outcome outcome = run({"get", kDocument, "--timeout", "2"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the request failed: "));
  EXPECT_THAT(outcome.errors, HasSubstr("[NSURLErrorDomain -1004]"));
}

TEST_F(WaitingTest, WithoutATimeoutTheFirstTrialDecides) {
  killService();
  const Outcome outcome = run({"get", kDocument, "--verbose"});
  EXPECT_EQ(outcome.exitCode, 4);
  const std::size_t first = outcome.errors.find("error from request: ");
  EXPECT_EQ(outcome.errors.rfind("error from request: "), first) << outcome.errors;
}

TEST_F(WaitingTest, InterruptEndsWaitingForTheService) {
  killService();
  RunningProgram program = launch({"get", kDocument, "--timeout", "600", "--verbose"});
  EXPECT_TRUE(waitForErrors(program, "error from request: "));
  program.process().signal(SIGINT);
  EXPECT_EQ(program.wait(), 130);
}

TEST_F(WaitingTest, ProgressIsToldWhenAskedFor) {
  for (Arguments command : commands(kEndless)) {
    command.emplace_back("--progress");
    RunningProgram program = launch(command);
    EXPECT_TRUE(waitForErrors(program, "kvlocal: waiting for the answer")) << command.front();
    program.process().signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
  }
}

TEST_F(WaitingTest, ProgressOfAFetchTellsTheSizeOfTheBody) {
  RunningProgram program = launch({"get", "/slow?ms=600000&pieces=2", "--progress"});
  EXPECT_TRUE(waitForErrors(program, "kvlocal: receiving 17 bytes"));
  program.process().signal(SIGINT);
  EXPECT_EQ(program.wait(), 130);
  EXPECT_THAT(program.readAll(), IsEmpty());
}

TEST_F(WaitingTest, NobodyIsToldWhenThereIsNoTerminal) {
  EXPECT_THAT(run({"get", "/slow?ms=1000"}).errors, IsEmpty());
}

TEST_F(WaitingTest, ATerminalIsToldOnALineThatGoesAwayAgain) {
  environment.emplace_back("SHELL=/bin/sh");
  RunningProgram terminal([&](int output) {
    return ChildProcess({"script", "-qec", KVLOCAL_PROGRAM " get '/slow?ms=600000'", "/dev/null"},
                        environmentWith(environment), directory.path() / "errors", output);
  });
  EXPECT_EQ(terminal.readUntil("answer"), "\r\033[Kkvlocal: waiting for the answer");
  killService();
  const std::string rest = terminal.readAll();
  EXPECT_THAT(rest, HasSubstr("\r\033[Kkvlocal: the request failed: "));
  EXPECT_EQ(terminal.wait(), 4);
}

TEST_F(WaitingTest, AReaderWhoLeavesIsAnErrorOfOutput) {
  for (const Arguments& command : commands("/echo")) {
    const bool isImage = command.front() == "image";
    RunningProgram program = launch(isImage ? Arguments{"image", "/image"} : command);
    program.closeOutput();
    EXPECT_EQ(program.wait(), 6) << command.front();
    EXPECT_EQ(errors(), "kvlocal: standard output cannot be written: Broken pipe\n");
  }
}

TEST_F(WaitingTest, AServiceThatDiesInMidBodyIsARequestThatFails) {
  RunningProgram program = launch({"get", "/slow?ms=600000&pieces=2"});
  ASSERT_TRUE(waitForServiceLog("slow: 1 of 2 pieces are sent"));
  killService();
  EXPECT_EQ(program.wait(), 4);
  EXPECT_THAT(program.readAll(), IsEmpty());
}

}  // namespace
}  // namespace kvltest
