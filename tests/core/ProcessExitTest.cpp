#include "platform/core/ProcessExit.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

namespace {

using kvl::core::ThreadWork;
using Clock = std::chrono::steady_clock;

// Ends with 0 when the exit has waited for the work of another thread.
void exitInsideTwoPiecesOfWork() {
  static Clock::time_point began;
  std::atexit([] { _exit(Clock::now() - began < std::chrono::milliseconds(100) ? 1 : 0); });
  std::promise<void> works;
  std::thread([&] {
    const ThreadWork ofAnother;
    works.set_value();
    while (true) pause();
  }).detach();
  works.get_future().wait();
  const ThreadWork outer;
  const ThreadWork inner;
  began = Clock::now();
  std::exit(1);
}

TEST(ProcessExitTest, WaitsForTheWorkOfOthersAlsoInsideNestedWork) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitInsideTwoPiecesOfWork(), testing::ExitedWithCode(0), "");
}

}  // namespace
