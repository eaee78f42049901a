#include "platform/urlloading/DeliveryWindow.h"

namespace kvl::urlloading {

bool DeliveryWindow::isOpen() {
  std::lock_guard lock(mutex_);
  held_ = waiting_ > limit_;
  return !held_;
}

void DeliveryWindow::add(std::size_t count) {
  std::lock_guard lock(mutex_);
  waiting_ += count;
}

bool DeliveryWindow::release(std::size_t count) {
  std::lock_guard lock(mutex_);
  waiting_ -= count;
  if (!held_ || waiting_ > limit_ / 2) return false;
  held_ = false;
  return true;
}

}  // namespace kvl::urlloading
