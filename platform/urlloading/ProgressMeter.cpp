#include "platform/urlloading/ProgressMeter.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace kvl::urlloading {

std::int64_t ProgressMeter::encoded(std::optional<std::uint64_t> count) {
  constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return count ? static_cast<std::int64_t>(std::min(*count, kMost)) : kUnknown;
}

void ProgressMeter::beginSending(std::optional<std::uint64_t> toSend) {
  sent_ = 0;
  toSend_ = encoded(toSend);
}

TransferProgress ProgressMeter::present() const {
  const auto decoded = [](std::int64_t count) {
    return count == kUnknown ? std::nullopt : std::optional<std::uint64_t>(count);
  };
  return {sent_, received_, decoded(toSend_), decoded(toReceive_)};
}

void ProgressMeter::publish(Time now) {
  if (!observed_) return;
  const MutexLock lock(mutex_);
  if (now - toldAt_ < kInterval) return;
  toldAt_ = now;
  tellNews();
}

ProgressMeter::Time ProgressMeter::nextPublication() const {
  if (!observed_) return Time::max();
  const MutexLock lock(mutex_);
  return told_ == present() ? Time::max() : toldAt_ + kInterval;
}

void ProgressMeter::tellNews() {
  const TransferProgress now = present();
  if (std::exchange(told_, now) != now) observers_->notify(now);
}

// Under the lock with which states are published, so that no observer misses the last one.
Observation ProgressMeter::observe(Handler handler) {
  const MutexLock lock(mutex_);
  if (!observers_) {
    queue_ = DispatchQueue::serial("korvale.local.progress");
    observers_ = std::make_shared<Observers>(queue_);
    told_ = present();
    observed_ = true;
  }
  return observers_->add(std::move(handler), present());
}

std::shared_ptr<DispatchQueue> ProgressMeter::finish() {
  if (!observed_) return nullptr;
  const MutexLock lock(mutex_);
  tellNews();
  return queue_;
}

}  // namespace kvl::urlloading
