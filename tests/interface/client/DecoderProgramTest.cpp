#include "platform/interface/client/DecoderProgram.h"
#include "tests/interface/ImageFolder.h"
#include "tests/interface/client/FalseDecoding.h"
#include "tests/support/ProcessFigures.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using kvl::interface::decoderPlaces;
using kvl::interface::DecoderProgram;

fs::path presentProgram() {
  for (const auto& place : decoderPlaces()) {
    if (fs::exists(place)) return place;
  }
  return {};
}

// Whatever a system call said before.
TEST(WaitForInputTest, TellsWhatCanBeReadAtOnce) {
  const kvl::interface::Descriptor empty(eventfd(0, EFD_CLOEXEC));
  const kvl::interface::Descriptor full(eventfd(1, EFD_CLOEXEC));
  const auto now = std::chrono::steady_clock::now();
  errno = EINTR;
  EXPECT_EQ(kvl::interface::waitForInput({empty.get(), full.get()}, now), 2U);
  errno = EINTR;
  EXPECT_EQ(kvl::interface::waitForInput({empty.get()}, now), 0U);
}

bool hasChild() {
  siginfo_t child{};
  return waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0;
}

TEST(DecoderProgramTest, LiesBesideThePrograms) {
  EXPECT_EQ(presentProgram().filename(), "kvlocal-image-decoder");
}

TEST(DecoderProgramTest, LiesThereWhicheverFolderTheProcessIsIn) {
  const auto places = decoderPlaces();
  const kvltest::ImageFolder folder;
  const kvltest::WorkingDirectory inside(folder.path());
  EXPECT_EQ(decoderPlaces(), places);
  EXPECT_TRUE(std::ranges::all_of(places, [](const auto& place) { return place.is_absolute(); }));
}

TEST(DecoderProgramTest, TheRealOneStartsAndEndsWithItsObject) {
  const auto descriptors = kvltest::descriptorCount();
  std::string problem;
  auto program = DecoderProgram::start(decoderPlaces(), problem);
  ASSERT_NE(program, nullptr) << problem;
  EXPECT_TRUE(hasChild());
  program.reset();
  EXPECT_FALSE(hasChild());
  EXPECT_EQ(kvltest::descriptorCount(), descriptors);
}

// Neither descriptors nor the environment, in which there may be secrets.
TEST(DecoderProgramTest, InheritsNothingOfTheHosts) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ASSERT_EQ(setenv("KVL_SECRET", "secret", 1), 0);
  std::string problem;
  const auto program = DecoderProgram::start({KVL_FALSE_DECODER}, problem);
  unsetenv("KVL_SECRET");
  ASSERT_NE(program, nullptr) << problem;
  const auto children = kvltest::childrenOf(getpid());
  ASSERT_EQ(children.size(), 1U);
  const fs::path folder = "/proc/" + std::to_string(children.front());
  const auto target = fs::read_symlink("/proc/self/fd/" + std::to_string(ends[0]));
  for (const auto& entry : fs::directory_iterator(folder / "fd")) {
    std::error_code gone;
    EXPECT_NE(fs::read_symlink(entry.path(), gone), target);
  }
  std::ifstream file(folder / "environ");
  const std::string environment{std::istreambuf_iterator<char>(file), {}};
  EXPECT_NE(environment.find("HOME=/nonexistent"), std::string::npos);
  EXPECT_EQ(environment.find("KVL_SECRET"), std::string::npos);
  for (const int end : ends) close(end);
}

// Where the program's own descriptors are in use, or free, the socket goes to its place.
TEST(DecoderProgramTest, AHostMayHaveClosedItsStandardInput) {
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
  close(STDIN_FILENO);
  std::string problem;
  EXPECT_NE(DecoderProgram::start({KVL_FALSE_DECODER}, problem), nullptr) << problem;
  if (kept >= 0) dup2(kept, STDIN_FILENO);
  close(kept);
}

class ProgramFailureTest : public testing::Test {
 protected:
  // Why there is none.
  std::string problemOf(const std::vector<fs::path>& places) {
    std::string problem;
    EXPECT_EQ(DecoderProgram::start(places, problem), nullptr);
    EXPECT_FALSE(hasChild());
    EXPECT_EQ(kvltest::descriptorCount(), descriptors_);
    return problem;
  }
  std::string falseProgram(const char* name) {
    fs::create_symlink(KVL_FALSE_DECODER, folder_.path() / name);
    return folder_.path() / name;
  }

  const kvltest::ImageFolder folder_;
  const std::size_t descriptors_ = kvltest::descriptorCount();
};

TEST_F(ProgramFailureTest, ThereIsNone) {
  EXPECT_EQ(problemOf({}), "there is no kvlocal-0.1/kvlocal-image-decoder");
  EXPECT_EQ(problemOf({"/nonexistent/a", "/nonexistent/b"}),
            "there is no kvlocal-0.1/kvlocal-image-decoder");
}

TEST_F(ProgramFailureTest, NoneIsTakenFromTheWorkingDirectory) {
  const auto program = falseProgram("program");
  const kvltest::WorkingDirectory inside(folder_.path());
  EXPECT_EQ(problemOf({"program", "./program"}), "there is no kvlocal-0.1/kvlocal-image-decoder");
  std::string problem;
  EXPECT_NE(DecoderProgram::start({"program", program}, problem), nullptr) << problem;
}

TEST_F(ProgramFailureTest, ItIsNoProgram) {
  const auto file = folder_.write("file", "no program");
  EXPECT_EQ(problemOf({file}), "Permission denied");
  fs::permissions(file, fs::perms::owner_all);
  EXPECT_EQ(problemOf({file}), "Exec format error");
}

TEST_F(ProgramFailureTest, ItIsOfAnotherVersion) {
  const auto program = falseProgram("of-another-version");
  EXPECT_EQ(problemOf({program}), program + " is of another version");
}

TEST_F(ProgramFailureTest, ItEndsAtOnce) {
  const auto program = falseProgram("ends-at-once");
  EXPECT_EQ(problemOf({program}), program + " does not start");
}

}  // namespace
