#include "bench/FeedProbe.h"

#include <cstdlib>
#include <string>

namespace kvlbench {

FeedRecord::FeedRecord(std::size_t events) : events_(events), warmUp_(events / 10) {}

bool FeedRecord::take(std::string_view data) {
  const double time = clockSeconds();
  if (taken_ == events_) return false;
  if (taken_ == warmUp_) part_.open(time);
  if (++taken_ > warmUp_) part_.add(time - std::stod(std::string(data)));
  if (taken_ < events_) return true;
  part_.close(time);
  return false;
}

}  // namespace kvlbench
