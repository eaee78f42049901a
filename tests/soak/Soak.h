// One soak, from its processes to its verdict.
#pragma once

#include "tests/integration/EventRecorder.h"
#include "tests/soak/Disturbances.h"
#include "tests/soak/Figures.h"
#include "tests/soak/Ledger.h"
#include "tests/soak/Traffic.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

struct SoakOptions {
  std::chrono::seconds duration{60};
  std::uint64_t seed = 1;
  double rate = 100;  // requests in a second
};

// The last lines of the framework's log, and what they tell.
class LogTail {
 public:
  LogTail();
  ~LogTail();
  LogTail(const LogTail&) = delete;
  LogTail& operator=(const LogTail&) = delete;

  [[nodiscard]] std::vector<std::string> lines() const;
  [[nodiscard]] std::int64_t renewals() const;

 private:
  void take(std::string_view line);

  mutable kvl::Mutex mutex_;
  std::deque<std::string> lines_ KVL_GUARDED_BY(mutex_);
  std::int64_t renewals_ KVL_GUARDED_BY(mutex_) = 0;
  kvl::LogSink previous_;
};

// Used by one thread, which the processes end with; another one serves the main queue meanwhile.
class Soak {
 public:
  explicit Soak(const SoakOptions& options);
  ~Soak();
  Soak(const Soak&) = delete;
  Soak& operator=(const Soak&) = delete;

  // Runs for as long as the options say and prints what it finds; whether all is well.
  [[nodiscard]] bool run();

 private:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] bool isShort() const { return options_.duration < std::chrono::minutes(1); }
  [[nodiscard]] bool establish();
  // Faults, one after the other, until that time.
  void disturbUntil(Clock::time_point end);
  void rest();
  void finish();
  void judge(const SoakFigures& last);
  void blame(const std::string& reason);
  void printLine();
  void printTable(const SoakFigures& last);

  const SoakOptions options_;
  Clock::time_point start_ = Clock::now();  // when the service was first reached
  LogTail log_;
  World world_;
  const std::shared_ptr<Ledger> ledger_ = std::make_shared<Ledger>();
  const std::shared_ptr<EventRecorder> recorder_ = std::make_shared<EventRecorder>();
  Disturbances disturbances_;
  std::optional<Traffic> traffic_;
  std::optional<SoakFigures> baseline_;
  Clock::time_point nextLine_;
  std::vector<std::string> reasons_;
};

}  // namespace kvltest
