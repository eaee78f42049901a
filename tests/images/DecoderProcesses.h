// The processes in which this one has its images decoded, as the system sees them.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace kvltest {

struct DecoderProcess {
  pid_t id = 0;
  bool isWorker = false;  // it was started by the one that this process has started
  std::chrono::milliseconds processorTime{0};
  std::int64_t residentBytes = 0;  // what it shares with others counts as well
};

// Those that have ended and nobody has waited for do not count.
[[nodiscard]] std::vector<DecoderProcess> decoderProcesses();

}  // namespace kvltest
