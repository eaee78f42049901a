#include "tests/interface/decoder/DecoderProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <optional>
#include <string>

namespace {

using kvl::interface::Descriptor;
using kvl::interface::Lack;
using kvltest::becomesReadable;
using kvltest::DecoderProcess;
using kvltest::openRequest;

constexpr std::chrono::seconds kAtOnce{10};

Descriptor lifeOf(pid_t process) {
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
}

// Whether the process behind the descriptor, not one of ours, ends without anybody ending it.
bool ends(const Descriptor& life) {
  return becomesReadable(life.get(), kAtOnce);
}

std::uint32_t lacksWithout(const std::string& what) {
  DecoderProcess decoder(KVL_TOLD_DECODER, {"--without", what});
  const auto hello = decoder.hello();
  return hello ? hello->lacks : ~0U;
}

// A host of its own, with a worker that is busy for ever.
class BusyHost {
 public:
  explicit BusyHost(const char* option) {
    std::array<int, 2> pipe{};
    EXPECT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
    const Descriptor output(pipe[1]);
    std::array<char*, 3> arguments{const_cast<char*>(KVL_TOLD_DECODER), const_cast<char*>(option),
                                   nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output.get(), STDOUT_FILENO);
    EXPECT_EQ(posix_spawn(&host_, arguments[0], &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    FILE* const said = fdopen(pipe[0], "r");
    EXPECT_EQ(std::fscanf(said, "%d %d %d", &parent_, &worker_, &child_), 3);
    std::fclose(said);
  }
  ~BusyHost() {
    if (child_ > 0) kill(child_, SIGKILL);
  }
  BusyHost(const BusyHost&) = delete;
  BusyHost& operator=(const BusyHost&) = delete;

  [[nodiscard]] Descriptor parent() const { return lifeOf(parent_); }
  [[nodiscard]] Descriptor worker() const { return lifeOf(worker_); }
  [[nodiscard]] Descriptor child() const { return lifeOf(child_); }

  void end() const {
    kill(host_, SIGKILL);
    waitpid(host_, nullptr, 0);
  }

 private:
  pid_t host_ = -1;
  pid_t parent_ = -1;
  pid_t worker_ = -1;
  pid_t child_ = -1;
};

TEST(SupervisorTest, NothingOutlivesTheHost) {
  const BusyHost host("--host");
  const auto parent = host.parent();
  const auto worker = host.worker();
  ASSERT_FALSE(becomesReadable(worker.get(), std::chrono::milliseconds(0)));
  host.end();
  EXPECT_TRUE(ends(parent));
  EXPECT_TRUE(ends(worker));
}

TEST(SupervisorTest, WhatTheHostsChildrenHaveOpenKeepsNothingAlive) {
  const BusyHost host("--family");
  const auto parent = host.parent();
  const auto worker = host.worker();
  const auto child = host.child();
  host.end();
  EXPECT_TRUE(ends(parent));
  EXPECT_TRUE(ends(worker));
  EXPECT_FALSE(becomesReadable(child.get(), std::chrono::milliseconds(0)));
}

TEST(SupervisorTest, LettingGoEndsAllInMidDecode) {
  DecoderProcess decoder(KVL_TOLD_DECODER);
  ASSERT_TRUE(decoder.hello());
  auto worker = decoder.start();
  ASSERT_TRUE(worker && worker->send(openRequest(1, "TELL spin")));
  decoder.letGo();
  EXPECT_EQ(decoder.status(), 0);
  EXPECT_TRUE(becomesReadable(worker->life(), kAtOnce));
}

TEST(SupervisorTest, TellsHowAWorkerEnded) {
  DecoderProcess decoder(KVL_TOLD_DECODER);
  ASSERT_TRUE(decoder.hello());
  auto worker = decoder.start();
  ASSERT_TRUE(worker && worker->send(openRequest(1, "TELL abort")));
  const auto ended = worker->ended();
  ASSERT_TRUE(ended);
  EXPECT_EQ(ended->number, worker->number());
  EXPECT_TRUE(WIFSIGNALED(ended->status));
  EXPECT_EQ(WTERMSIG(ended->status), SIGABRT);
  EXPECT_EQ(ended->error, 0);
  EXPECT_GT(ended->peakKiB, 0U);
}

TEST(SupervisorTest, AWorkerThatIsEndedIsReplaced) {
  DecoderProcess decoder(KVL_TOLD_DECODER);
  ASSERT_TRUE(decoder.hello());
  auto first = decoder.start();
  auto second = decoder.start();
  ASSERT_TRUE(first && second);
  // As often as it is done, the parent may not have seen the end yet.
  for (int turn = 0; turn < 20; ++turn) {
    first->end();
    first = decoder.start();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->tell("thread"), 0);
  }
  EXPECT_EQ(second->tell("thread"), 0);
}

TEST(SupervisorTest, AThirdWorkerEndsTheProgram) {
  DecoderProcess decoder(KVL_TOLD_DECODER);
  ASSERT_TRUE(decoder.hello());
  auto first = decoder.start();
  auto second = decoder.start();
  ASSERT_TRUE(first && second);
  EXPECT_FALSE(decoder.start());
  EXPECT_EQ(WEXITSTATUS(decoder.status()), 2);
  EXPECT_TRUE(becomesReadable(first->life(), kAtOnce));
  EXPECT_TRUE(becomesReadable(second->life(), kAtOnce));
}

TEST(SupervisorTest, AWrongMessageEndsTheProgram) {
  DecoderProcess decoder(KVL_TOLD_DECODER);
  ASSERT_TRUE(decoder.hello());
  auto worker = decoder.start();
  kvl::Bytes message;
  write(kvl::interface::Start{2}, message);
  ASSERT_TRUE(decoder.send(message)) << "without the socket";
  EXPECT_EQ(WEXITSTATUS(decoder.status()), 2);
}

TEST(SupervisorTest, SaysWhyThereIsNoWorker) {
  DecoderProcess decoder(KVL_TOLD_DECODER, {"--without", "forks"});
  ASSERT_TRUE(decoder.hello());
  EXPECT_FALSE(decoder.start());
  ASSERT_TRUE(decoder.failure());
  EXPECT_EQ(decoder.failure()->error, EAGAIN);
}

TEST(SupervisorTest, WithoutAWayToSeeTheHostsEndItDoesNotBegin) {
  DecoderProcess decoder(KVL_TOLD_DECODER, {"--without", "pidfds"});
  EXPECT_FALSE(decoder.hello());
  EXPECT_EQ(WEXITSTATUS(decoder.status()), 1);
}

TEST(SupervisorTest, WarmsTextWhenTheHostIsSilentAfterTheFirstWorker) {
  DecoderProcess decoder(KVL_TOLD_DECODER);
  ASSERT_TRUE(decoder.hello());
  auto worker = decoder.start();
  ASSERT_TRUE(worker);
  EXPECT_EQ(decoder.said(5), "text\n");
}

TEST(SupervisorTest, SaysWhatTheSystemLacks) {
  const auto version = kvltest::kernelsLandlock();
  const auto here = lacksWithout("nothing");
  EXPECT_EQ((here & Lack::kNoLandlock) != 0, version == 0);
  EXPECT_EQ((here & Lack::kNoNetworkRules) != 0, version < 4);
  EXPECT_EQ(here & Lack::kNoSystemCallFilter, 0U);
  EXPECT_EQ(here & Lack::kNoLimits, 0U);
  EXPECT_EQ(lacksWithout("landlock"), here | Lack::kNoLandlock | Lack::kNoNetworkRules);
  EXPECT_EQ(lacksWithout("filters"), here | Lack::kNoSystemCallFilter);
  EXPECT_EQ(lacksWithout("limits"), here | Lack::kNoLimits);
}

TEST(SupervisorTest, WorksWithWhatTheSystemHas) {
  for (const auto* lacking : {"landlock", "filters", "limits"}) {
    DecoderProcess decoder(KVL_TOLD_DECODER, {"--without", lacking});
    ASSERT_TRUE(decoder.hello());
    auto worker = decoder.start();
    ASSERT_TRUE(worker) << lacking;
    EXPECT_EQ(worker->tell("thread"), 0) << lacking;
    EXPECT_EQ(worker->tell("tcp"), std::string(lacking) == "filters" ? 0 : EPERM) << lacking;
  }
}

}  // namespace
