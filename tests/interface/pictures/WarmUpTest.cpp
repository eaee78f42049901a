#include "tests/interface/ImageFolder.h"
#include "tests/interface/MadeImages.h"
#include "tests/interface/pictures/DrawnPicture.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/Sanitized.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

// Entities and fonts stay in use where the sanitizer does not see them.
extern "C" const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\nleak:libxml2.so\n";
}

namespace {

using kvltest::drawn;
using kvltest::pictureOf;

// In a process of its own: this one has loaded what made the images.
TEST(WarmUpTest, NoFileIsNeededAfterwards) {
  const kvltest::ImageFolder folder;
  std::string command = KVL_FRESH_DECODER;
  for (const auto& made : kvltest::madeImages()) {
    command += " '" + folder.write(made.name.c_str(), made.data.text()) + "'";
  }
  const auto inside = kvltest::writtenSVG(
      "width='8' height='8'",
      "<image width='8' height='8' href=\"data:image/svg+xml,%3Csvg xmlns='http://www.w3.org/2000/"
      "svg' width='8' height='8'%3E%3Cpath d='M0 0h8v8H0z'/%3E%3C/svg%3E\"/>");
  command += " '" + folder.write("SVG within an SVG", inside.text()) + "'";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST(WarmUpTest, NoThreadIsStarted) {
  const auto before = kvltest::threadCount();
  kvl::pictures::loadDecoders();
  EXPECT_EQ(kvltest::threadCount(), before);
}

TEST(WarmUpTest, FontsAreFoundAndTheThreadThatLooksForThemHasEnded) {
  const auto before = kvltest::threadCount();
  kvl::pictures::warmText();
  // The thread sanitizer has one of its own as soon as there is another.
  EXPECT_LE(kvltest::threadCount(), before + (kvltest::kSanitized ? 1 : 0));
  const auto svg = kvltest::writtenSVG("width='32' height='32'", "<text y='30'>WWW</text>");
  const auto bitmap = drawn(svg.text(), 32, 32);
  EXPECT_TRUE(std::ranges::any_of(bitmap.pixels.bytes(), [](auto byte) { return byte != 0; }));
}

// In a process that gets no more than it has, and 32 MiB.
bool lacksMemoryFor(const std::string& bytes) {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (rlim_t{32} << 20);
  setrlimit(RLIMIT_AS, &limit);
  return pictureOf(bytes) == nullptr && kvl::pictures::lacksMemory();
}

TEST(WarmUpTest, WantOfMemoryIsTold) {
  if (kvltest::kSanitized) GTEST_SKIP() << "the sanitizers take what the limit leaves";
  // The head of a bitmap of 8192 x 8192 pixels.
  const std::string bmp("BM\0\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0\0\x20\0\0\0\x20\0\0\1\0\x18\0", 30);
  EXPECT_NE(pictureOf(bmp + std::string(100, '\0')), nullptr);
  EXPECT_FALSE(kvl::pictures::lacksMemory());
  const pid_t child = fork();
  if (child == 0) _exit(lacksMemoryFor(bmp + std::string(100, '\0')) ? 0 : 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
