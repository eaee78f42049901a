// One line on standard error that tells that something goes on.
#pragma once

#include "tools/kvlocal/Rendezvous.h"

#include <string_view>

namespace kvlocal {

// Of a terminal it is always the same line, which goes away at the end; what takes less than half a
// second shows none. For one thread.
class ProgressNote {
 public:
  // Only for a terminal, unless it is `forced`.
  explicit ProgressNote(bool forced);
  ~ProgressNote();
  ProgressNote(const ProgressNote&) = delete;
  ProgressNote& operator=(const ProgressNote&) = delete;

  // When `show` is to be called next; absent for never.
  [[nodiscard]] Rendezvous::Limit next() const { return next_; }
  // Writes what is going on, and for how many seconds.
  void show(std::string_view phase);

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  const bool isTerminal_;
  Rendezvous::Limit next_;
  bool isShown_ = false;
};

}  // namespace kvlocal
