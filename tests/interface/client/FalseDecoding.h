// Images in the processes of a false decoder, which does as their bytes tell it.
#pragma once

#include "platform/interface/client/ImageDecoding.h"

#include <local/platform/Data.h>

#include <dirent.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvltest {

using kvl::interface::ImageDecoding;
using kvl::interface::ImageFormat;
using kvl::interface::ImageSource;
using SourcePtr = std::shared_ptr<ImageSource>;

inline constexpr kvl::Size kFalseSize{16, 8};  // of each image

inline SourcePtr sourceOf(std::string_view order, ImageFormat format = ImageFormat::kSVG) {
  return std::make_shared<ImageSource>(kvl::Data::fromText(order), format);
}

inline ImageDecoding::Options falseOptions(
    const std::filesystem::path& program = KVL_FALSE_DECODER) {
  ImageDecoding::Options options;
  options.places = {program};
  return options;
}

// Those that have ended, but have not been waited for, included.
inline std::vector<pid_t> childrenOf(pid_t parent) {
  std::vector<pid_t> children;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    const auto name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream file(entry.path() / "stat");
    std::string line;
    std::getline(file, line);
    const auto end = line.rfind(')');  // of the name
    if (end == std::string::npos || end + 4 > line.size()) continue;
    if (std::atoi(line.c_str() + end + 4) == parent) children.push_back(std::atoi(name.c_str()));
  }
  return children;
}

// The workers of this process's one decoder's program.
inline std::vector<pid_t> workers() {
  const auto programs = childrenOf(getpid());
  return programs.size() == 1 ? childrenOf(programs.front()) : std::vector<pid_t>();
}

// Timers that fire when the test says so.
class DrivenTimers {
 public:
  using Delay = std::chrono::nanoseconds;

  [[nodiscard]] auto later() {
    return [state = state_](Delay delay, std::function<void()> fire) {
      const std::lock_guard lock(state->mutex);
      state->waiting.emplace_back(delay, std::move(fire));
    };
  }
  // The delay of the one that waits, if one and only one does.
  [[nodiscard]] std::optional<Delay> delay() const {
    const std::lock_guard lock(state_->mutex);
    if (state_->waiting.size() != 1) return std::nullopt;
    return state_->waiting.front().first;
  }
  void fire() {
    std::unique_lock lock(state_->mutex);
    const auto waiting = std::exchange(state_->waiting, {});
    lock.unlock();
    for (const auto& [delay, fire] : waiting) fire();
  }

 private:
  struct State {
    std::mutex mutex;
    std::vector<std::pair<Delay, std::function<void()>>> waiting;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace kvltest
