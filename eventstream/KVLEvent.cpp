#include <local/KVLEvent.h>
#include <local/platform/Log.h>

KVLEvent::Text KVLEvent::data() const {
  std::lock_guard lock(mutex_);
  return sharedData_ ? Text(sharedData_->text()) : data_;
}

void KVLEvent::setData(Text data) {
  std::optional<kvl::Data> replaced;
  std::lock_guard lock(mutex_);
  sharedData_.swap(replaced);
  data_.swap(data);
}

bool KVLEvent::isValid() const {
  const auto name = event();
  return name && !name->empty();
}

std::string KVLEvent::description() const {
  return kvl::format("event:%@,data:%@,id:%@", event(), data(), identifier());
}
