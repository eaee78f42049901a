#include "tests/support/LogCapture.h"
#include "tests/support/PseudoTerminal.h"

#include <local/platform/Log.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <thread>

namespace {

TEST(LogTest, FillsPlaceholdersInOrder) {
  EXPECT_EQ(kvl::format("%@ has %ld at %.2lf %%", "a", 3, "0.50"), "a has 3 at 0.50 %");
}

TEST(LogTest, PrintsWhatIsAbsentAsNull) {
  const std::optional<kvl::URL> none;
  const std::shared_ptr<kvl::URL> nobody;
  EXPECT_EQ(kvl::format("%@ %@ %@", none, nobody, "x"), "(null) (null) x");
  EXPECT_EQ(kvl::format("%@ %@", "only"), "only (null)");
}

TEST(LogTest, DoesNotReadPlaceholdersInsideArguments) {
  EXPECT_EQ(kvl::format("%@ %@", "%@", "b"), "%@ b");
}

TEST(LogTest, LeavesOtherPercentSignsAlone) {
  EXPECT_EQ(kvl::format("50% of %x"), "50% of %x");
}

TEST(LogTest, OneDiagnosticIsOneLine) {
  const kvltest::LogCapture log;
  kvl::log("a\nb\rc%@", "\r\n");
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_EQ(log.lines()[0], "a\\nb\\rc\\r\\n");
}

constexpr std::string_view kSteering = "a\tb\x1b[2J\x7f\xc2\x85\u202e\u2066\u061c\xff\\n\u2026";

TEST(LogTest, ASinkGetsEverythingElseAsItIs) {
  const kvltest::LogCapture log;
  kvl::log("%@", kSteering);
  EXPECT_EQ(log.lines().at(0), kSteering);
}

TEST(LogTest, KeepsTextOutsideASCII) {
  const kvltest::LogCapture log;
  kvl::log("\u2026%@", "\u2013");
  EXPECT_EQ(log.lines().at(0), "\u2026\u2013");
}

TEST(LogTest, CallsTheSinkOneAtATime) {
  int calls = 0;  // unguarded on purpose: the thread sanitizer watches
  const auto previous = kvl::setLogSink([&calls](std::string_view) { ++calls; });
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int line = 0; line < 100; ++line) kvl::log("line %ld", line);
    });
  }
  threads.clear();
  kvl::setLogSink(previous);
  EXPECT_EQ(calls, 400);
}

TEST(LogTest, TheSinkIsReplacedBetweenTwoLinesOnly) {
  std::future<kvl::LogSink> replacing;
  bool wasReplaced = true;
  const kvl::LogSink before = kvl::setLogSink([&](std::string_view) {
    replacing = std::async(std::launch::async, [] { return kvl::setLogSink({}); });
    wasReplaced = replacing.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
  });
  kvl::log("a line");
  EXPECT_FALSE(wasReplaced);
  replacing.get();
  kvl::setLogSink(before);
}

TEST(LogTest, WritesToTheSystemLogWithoutASink) {
  // Nobody may be listening; the line then reaches standard error.
  testing::internal::CaptureStderr();
  kvl::logLine("a line for the system");
  const auto text = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(text.empty() || text == "a line for the system\n") << text;
}

// The pseudo-terminal always gets the line, the system's log or not.
TEST(LogTest, ATerminalIsGivenNothingThatSteersIt) {
  const kvltest::PseudoTerminal terminal;
  const int errors = dup(STDERR_FILENO);
  dup2(terminal.end(), STDERR_FILENO);
  kvl::logLine(kSteering);
  dup2(errors, STDERR_FILENO);
  close(errors);
  EXPECT_EQ(terminal.readLine(),
            "a\\tb\\x1b[2J\\x7f\\u{85}\\u{202e}\\u{2066}\\u{61c}\\xff\\n\u2026");
}

}  // namespace
