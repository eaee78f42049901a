#include "platform/security/ProcessMarks.h"
#include "tests/security/KeyStoreSupport.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace kvl::security {
namespace {

using kvltest::markOfEndedProcess;

std::string replaced(std::string text, std::size_t field, const std::string& by) {
  std::size_t begin = 0;
  while (field-- > 0) begin = text.find('.', begin) + 1;
  const std::size_t end = text.find('.', begin);
  return text.replace(begin, end == std::string::npos ? end : end - begin, by);
}

TEST(ProcessMarksTest, ThisProcessHasNotEnded) {
  const ProcessMarks marks;
  ASSERT_TRUE(marks.own());
  EXPECT_FALSE(marks.isOfEndedProcess(*marks.own()));
  EXPECT_EQ(marks.own(), ProcessMarks().own());
}

TEST(ProcessMarksTest, AChildIsAnotherProcessAndEnds) {
  const std::string mark = markOfEndedProcess();
  EXPECT_NE(mark, ProcessMarks().own());
  EXPECT_TRUE(ProcessMarks().isOfEndedProcess(mark)) << mark;
}

TEST(ProcessMarksTest, AProcessThatTookOverTheNumberIsAnother) {
  const ProcessMarks marks;
  EXPECT_TRUE(marks.isOfEndedProcess(replaced(*marks.own(), 3, "1")));
}

TEST(ProcessMarksTest, NothingIsSaidOfOtherPlaces) {
  const std::string ended = markOfEndedProcess();
  EXPECT_FALSE(ProcessMarks().isOfEndedProcess(replaced(ended, 1, "0123456789abcdef")));
}

TEST(ProcessMarksTest, WithoutAViewOfItselfAProcessHasNoMark) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a namespace of processes";
  EXPECT_EQ(markOfEndedProcess(true), "none");
}

// The process that it finds in /proc under a number is not the one that has this number for it.
TEST(ProcessMarksTest, WithoutAViewOfItselfAProcessSaysNothingOfOthers) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a namespace of processes";
  const std::string words = kvltest::fromEndedProcess(true, [] {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("proc", "/proc", "proc", 0, nullptr) != 0)
      return std::string("no view of its own");
    const std::string mark = ProcessMarks().own().value_or("none");
    umount("/proc");
    return ProcessMarks().isOfEndedProcess(mark) ? "ended: " + mark : "nothing";
  });
  if (words == "no view of its own") GTEST_SKIP() << "/proc cannot be mounted here";
  EXPECT_EQ(words, "nothing");
}

TEST(ProcessMarksTest, NothingIsSaidOfWhatIsNoMark) {
  const std::string ended = markOfEndedProcess();
  const ProcessMarks marks;
  for (const std::string& other :
       {std::string(), std::string("1"), std::string("..."), replaced(ended, 0, "2"),
        replaced(ended, 2, "0"), replaced(ended, 2, "-1"), replaced(ended, 2, "1x"),
        replaced(ended, 2, "99999999999"), replaced(ended, 3, ""), replaced(ended, 3, "x"),
        ended + ".", "x" + ended})
    EXPECT_FALSE(marks.isOfEndedProcess(other)) << other;
}

}  // namespace
}  // namespace kvl::security
