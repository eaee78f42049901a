#include "platform/urlloading/DeliveryWindow.h"

namespace kvl::urlloading {

bool DeliveryWindow::isOpen(std::size_t collected) {
  const MutexLock lock(mutex_);
  held_ = suspensions_ > 0 || waiting_ + collected > limit_;
  return !held_;
}

void DeliveryWindow::add(std::size_t count) {
  const MutexLock lock(mutex_);
  waiting_ += count;
}

bool DeliveryWindow::release(std::size_t count) {
  const MutexLock lock(mutex_);
  waiting_ -= count;
  if (!held_ || suspensions_ > 0 || waiting_ > limit_ / 2) return false;
  held_ = false;
  return true;
}

void DeliveryWindow::suspend() {
  const MutexLock lock(mutex_);
  ++suspensions_;
}

bool DeliveryWindow::resume() {
  const MutexLock lock(mutex_);
  if (suspensions_ == 0) return false;
  --suspensions_;
  isResuming_ = suspensions_ == 0;
  return isResuming_;
}

bool DeliveryWindow::isSuspended() const {
  const MutexLock lock(mutex_);
  return suspensions_ > 0 || isResuming_;
}

void DeliveryWindow::noteResumed() {
  const MutexLock lock(mutex_);
  isResuming_ = false;
}

}  // namespace kvl::urlloading
