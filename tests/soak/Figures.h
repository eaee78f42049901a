// What this process takes of the machine.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kvltest {

struct SoakFigures {
  std::int64_t threads = 0;
  std::int64_t descriptors = 0;
  std::int64_t resident = 0;  // bytes
  std::int64_t heap = 0;      // bytes that are in use
  std::int64_t kept = 0;      // keys and certificates that stay for the life of the process
  double processorSeconds = 0;

  [[nodiscard]] static SoakFigures now();
};

// What has grown by more than resting connections, pools and kept certificates account for; empty
// when nothing has.
[[nodiscard]] std::string growth(const SoakFigures& before, const SoakFigures& after);

// Waits until the process has come to rest: nothing has grown since `before`, and threads and
// descriptors stay the same for a while. What it has then, or when the limit of time has passed.
[[nodiscard]] SoakFigures figuresAtRest(const std::optional<SoakFigures>& before,
                                        std::chrono::milliseconds calm, std::chrono::seconds limit);

}  // namespace kvltest
