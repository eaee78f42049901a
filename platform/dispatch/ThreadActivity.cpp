#include "platform/dispatch/ThreadActivity.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace kvl::dispatch {
namespace {

using std::chrono::nanoseconds;

std::optional<nanoseconds> timeOf(clockid_t clock) {
  timespec time{};
  if (clock_gettime(clock, &time) != 0) return std::nullopt;
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

bool isRunnable(pid_t thread) {
  const auto path = "/proc/self/task/" + std::to_string(thread) + "/stat";
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  std::array<char, 128> text{};
  const auto size = read(file, text.data(), text.size());
  close(file);
  const std::string_view line(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  const auto name = line.rfind(") ");  // "number (name) state ..."
  return name != std::string_view::npos && line.substr(name + 2).starts_with('R');
}

}  // namespace

ThreadActivity ThreadActivity::ofThisThread() noexcept {
  ThreadActivity activity;
  activity.thread_ = static_cast<pid_t>(syscall(SYS_gettid));
  pthread_getcpuclockid(pthread_self(), &activity.clock_);
  return activity;
}

// One that has used no processor time since it was found asleep is still asleep.
bool ThreadActivity::isRunning() {
  const auto used = timeOf(clock_);
  if (used && *used == seen_) return false;
  if (isRunnable(thread_)) return true;
  seen_ = used.value_or(nanoseconds(-1));
  return false;
}

}  // namespace kvl::dispatch
