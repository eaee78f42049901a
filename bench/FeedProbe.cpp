#include "bench/FeedProbe.h"

#include <cstdlib>
#include <string>

namespace kvlbench {

FeedRecord::FeedRecord(std::size_t events) : events_(events), warmUp_(events / 10) {
  latencies_.reserve(events);
}

bool FeedRecord::take(std::string_view data) {
  const double time = clockSeconds();
  if (taken_ == events_) return false;
  if (taken_ == warmUp_) {
    opened_ = time;
    processor_ = processorSeconds();
  }
  if (++taken_ > warmUp_) latencies_.push_back(time - std::stod(std::string(data)));
  if (taken_ < events_) return true;
  closed_ = time;
  processor_ = processorSeconds() - processor_;
  return false;
}

void FeedRecord::print() const {
  printOutcome(latencies_, closed_ - opened_, processor_);
}

}  // namespace kvlbench
