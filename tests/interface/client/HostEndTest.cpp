// What becomes of the decoder's processes when their host ends, and hosts that may have none.
#include "tests/interface/ImageFolder.h"
#include "tests/interface/client/FalseDecoding.h"
#include "tests/support/Pipe.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kvltest::waitUntil;

// A process that has ended may stay in the table until somebody waits for it.
bool hasEnded(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  if (!std::getline(file, line)) return true;
  const auto state = line.find(") ");
  return state != std::string::npos && line.substr(state + 2).starts_with('Z');
}

class Host {
 public:
  Host(const std::string& program, const char* how) {
    process_ = fork();
    if (process_ != 0) return;
    dup2(output_.writeEnd(), STDOUT_FILENO);
    execl(KVL_IMAGE_HOST, KVL_IMAGE_HOST, program.c_str(), how, nullptr);
    _exit(127);
  }
  ~Host() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  [[nodiscard]] std::string line() { return output_.readLine(); }
  // The decoder's program and its workers.
  [[nodiscard]] std::vector<pid_t> processes() {
    std::istringstream text(line());
    std::vector<pid_t> all;
    for (pid_t process = 0; text >> process;) all.push_back(process);
    return all;
  }
  // How it ended, as wait(2) tells it.
  [[nodiscard]] int wait() {
    int status = -1;
    waitpid(std::exchange(process_, 0), &status, 0);
    return status;
  }

 private:
  kvltest::Pipe output_;
  pid_t process_ = 0;
};

class HostEndTest : public testing::TestWithParam<const char*> {};

TEST_P(HostEndTest, NothingIsLeft) {
  Host host(KVL_FALSE_DECODER, GetParam());
  const auto processes = host.processes();
  ASSERT_EQ(processes.size(), 3U);
  const std::string how = GetParam();
  const pid_t child = how == "fork" ? std::atoi(host.line().c_str()) : 0;
  const auto begin = std::chrono::steady_clock::now();
  const int status = host.wait();
  EXPECT_EQ(WIFSIGNALED(status) ? WTERMSIG(status) : 0, how == "kill" ? SIGKILL : 0);
  for (const pid_t process : processes) {
    EXPECT_TRUE(waitUntil([process] { return hasEnded(process); })) << process;
  }
  // An image under way would take 20 s.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  if (child > 0) {
    EXPECT_FALSE(hasEnded(child));
    kill(child, SIGKILL);
  }
}

INSTANTIATE_TEST_SUITE_P(HowItEnds, HostEndTest, testing::Values("exit", "quick", "kill", "fork"),
                         [](const auto& how) { return std::string(how.param); });

TEST(HostTest, WhileItExitsThereAreNoImages) {
  Host host(KVL_FALSE_DECODER, "exit");
  EXPECT_EQ(host.processes().size(), 3U);
  EXPECT_EQ(host.line(), "none");
  EXPECT_EQ(host.line(), "");
  EXPECT_EQ(host.wait(), 0);
}

TEST(HostTest, WithoutProcessesThereIsNoImageAndOneLine) {
  const kvltest::ImageFolder folder;
  const auto program = folder.path() / "program";
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::copy_file(KVL_FALSE_DECODER, program);
  Host host(program, "without-processes");
  EXPECT_EQ(host.line(), "no images: Resource temporarily unavailable");
  EXPECT_EQ(host.line(), "ended");
  EXPECT_EQ(host.wait(), 0);
}

TEST(HostTest, WithoutHandlesOfProcessesNoneIsLeft) {
  Host host(KVL_FALSE_DECODER, "without-handles");
  EXPECT_EQ(host.line(), "no images: Operation not permitted");
  EXPECT_EQ(host.line(), "0 children");
  EXPECT_EQ(host.wait(), 0);
}

TEST(HostTest, WhatTheSystemLacksIsSaidOnce) {
  const kvltest::ImageFolder folder;
  const auto program = folder.path() / "lacks";
  std::filesystem::create_symlink(KVL_FALSE_DECODER, program);
  Host host(program, "lacks");
  EXPECT_EQ(host.line(),
            "images: this system has no Landlock: decoders could read the user's files");
  EXPECT_EQ(host.line(), "images: this system sets no limits: decoders could take all memory");
  EXPECT_EQ(host.line(), "ended");
  EXPECT_EQ(host.wait(), 0);
}

}  // namespace
