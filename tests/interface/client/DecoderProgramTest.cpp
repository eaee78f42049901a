#include "platform/interface/client/DecoderProgram.h"
#include "tests/interface/ImageFolder.h"
#include "tests/support/ProcessFigures.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <string>

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
  EXPECT_EQ(problemOf({}), "there is no kvlocal/kvlocal-image-decoder");
  EXPECT_EQ(problemOf({"/nonexistent/a", "/nonexistent/b"}),
            "there is no kvlocal/kvlocal-image-decoder");
}

TEST_F(ProgramFailureTest, NoneIsTakenFromTheWorkingDirectory) {
  const auto program = falseProgram("program");
  const kvltest::WorkingDirectory inside(folder_.path());
  EXPECT_EQ(problemOf({"program", "./program"}), "there is no kvlocal/kvlocal-image-decoder");
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
