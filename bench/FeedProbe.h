// What the programs share that follow an event stream: each event's data is the time at which it
// was written.
#pragma once

#include "bench/RequestProbe.h"

#include <cstddef>
#include <string_view>

namespace kvlbench {

class FeedRecord {
 public:
  // The first tenth of them is not measured.
  explicit FeedRecord(std::size_t events);

  // Takes an event's data; used by one thread at a time. False once all are there.
  [[nodiscard]] bool take(std::string_view data);
  // Prints events a second, the median and the 99th percentile of the microseconds from the
  // server's write, and microseconds of processor time an event.
  void print() const { part_.print(); }

 private:
  const std::size_t events_;
  const std::size_t warmUp_;
  std::size_t taken_ = 0;
  MeasuredPart part_;
};

}  // namespace kvlbench
