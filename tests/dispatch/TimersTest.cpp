// The clock that timers of the process are on.
#include <local/platform/DispatchQueue.h>
#include <local/platform/Semaphore.h>

#include <gmock/gmock.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace {

using namespace std::chrono_literals;

// As the kernel tells them of the process's timer descriptors.
std::vector<int> clocksOfTimerDescriptors() {
  std::vector<int> clocks;
  for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(descriptor, gone) != "anon_inode:[timerfd]") continue;
    std::ifstream told("/proc/self/fdinfo" / descriptor.path().filename());
    for (std::string line; std::getline(told, line);)
      if (line.starts_with("clockid:"))
        clocks.push_back(std::stoi(line.substr(line.find(':') + 1)));
  }
  return clocks;
}

TEST(TimersTest, CountTheTimeThatTheMachineSleeps) {
  kvl::Semaphore fired;
  kvl::DispatchQueue::serial("test")->asyncAfter(1ms, [&fired] { fired.signal(); });
  fired.wait();
  EXPECT_THAT(clocksOfTimerDescriptors(), testing::ElementsAre(CLOCK_BOOTTIME));
}

}  // namespace
