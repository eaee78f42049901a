#include "tests/interface/MadeImages.h"
#include "tests/interface/pictures/DrawnPicture.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/Sanitized.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

// Entities and fonts stay in use where the sanitizer does not see them.
extern "C" const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\nleak:libxml2.so\n";
}

namespace {

using kvltest::drawn;
using kvltest::expectRedAndBlue;
using kvltest::pictureOf;

TEST(WarmUpTest, NoFileIsNeededAfterwards) {
  const auto images = kvltest::madeImages();
  const std::string inside =
      "<image width='32' height='16' preserveAspectRatio='none' href=\"data:image/svg+xml,%3Csvg "
      "xmlns='http://www.w3.org/2000/svg' viewBox='0 0 2 1'%3E%3Cpath fill='red' d='M0 0h1v1H0z'/"
      "%3E%3Cpath fill='blue' d='M1 0h1v1H1z'/%3E%3C/svg%3E\"/>";
  const auto svg = kvltest::writtenSVG("width='32' height='16'", inside);
  kvl::pictures::loadDecoders();
  const kvltest::NoDescriptors none(kvltest::kLeftToSanitizers);
  for (const auto& made : images) expectRedAndBlue(drawn(made.data.text(), 32, 16), made.name);
  expectRedAndBlue(drawn(svg.text(), 32, 16), "an SVG within an SVG");
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
