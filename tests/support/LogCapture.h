// Collects the framework's log lines while it lives.
#pragma once

#include <local/platform/Log.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

class LogCapture {
 public:
  LogCapture()
      : previous_(kvl::setLogSink([lines = lines_](std::string_view line) {
          std::lock_guard lock(lines->mutex);
          lines->all.emplace_back(line);
          lines->changed.notify_all();
        })) {}
  ~LogCapture() { kvl::setLogSink(std::move(previous_)); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  [[nodiscard]] std::vector<std::string> lines() const {
    std::lock_guard lock(lines_->mutex);
    return lines_->all;
  }

  // How many lines hold `part`.
  [[nodiscard]] std::size_t count(std::string_view part) const {
    std::lock_guard lock(lines_->mutex);
    return lines_->count(part);
  }

  // Waits until at least `number` lines hold `part`.
  [[nodiscard]] bool waitFor(std::string_view part, std::size_t number = 1,
                             std::chrono::seconds limit = std::chrono::seconds(20)) const {
    std::unique_lock lock(lines_->mutex);
    return lines_->changed.wait_for(lock, limit, [&] { return lines_->count(part) >= number; });
  }

  void clear() const {
    std::lock_guard lock(lines_->mutex);
    lines_->all.clear();
  }

 private:
  struct Lines {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> all;

    [[nodiscard]] std::size_t count(std::string_view part) const {
      std::size_t found = 0;
      for (const auto& line : all) found += line.find(part) != std::string::npos ? 1 : 0;
      return found;
    }
  };
  std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
  kvl::LogSink previous_;
};

}  // namespace kvltest
