#include <local/KVLEvent.h>
#include <local/platform/Log.h>
#include <local/platform/Mutex.h>

#include <memory>
#include <new>

struct KVLEvent::Properties {
  Properties() = default;
  Properties(const TextView& itsEvent, const TextView& itsData, const TextView& itsIdentifier)
      : event(itsEvent), data(itsData), identifier(itsIdentifier) {}
  Properties(const TextView& itsEvent, SharedData itsData, const TextView& itsIdentifier)
      : event(itsEvent), sharedData(std::move(itsData.bytes)), identifier(itsIdentifier) {}

  [[nodiscard]] Text get(Text Properties::* property) const {
    kvl::MutexLock lock(mutex);
    return this->*property;
  }
  // What was there before is destroyed with the caller's `value`, outside the lock.
  void exchange(Text Properties::* property, Text& value) {
    kvl::MutexLock lock(mutex);
    (this->*property).swap(value);
  }

  mutable kvl::Mutex mutex;
  Text event KVL_GUARDED_BY(mutex);
  Text data KVL_GUARDED_BY(mutex);
  // Long data stays where the stream's bytes are. Where there is any, `data` is absent.
  std::optional<kvl::Data> sharedData KVL_GUARDED_BY(mutex);
  Text identifier KVL_GUARDED_BY(mutex);
};

KVLEvent::Properties& KVLEvent::properties() noexcept {
  return *std::launder(reinterpret_cast<Properties*>(storage_));
}
const KVLEvent::Properties& KVLEvent::properties() const noexcept {
  return *std::launder(reinterpret_cast<const Properties*>(storage_));
}

KVLEvent::KVLEvent() {
  static_assert(sizeof(Properties) <= kSize && alignof(Properties) <= alignof(KVLEvent));
  ::new (static_cast<void*>(storage_)) Properties();
}
KVLEvent::KVLEvent(const TextView& event, const TextView& data, const TextView& identifier) {
  ::new (static_cast<void*>(storage_)) Properties(event, data, identifier);
}
KVLEvent::KVLEvent(const TextView& event, SharedData data, const TextView& identifier) {
  ::new (static_cast<void*>(storage_)) Properties(event, std::move(data), identifier);
}
KVLEvent::~KVLEvent() {
  std::destroy_at(&properties());
}

KVLEvent::Text KVLEvent::event() const {
  return properties().get(&Properties::event);
}
void KVLEvent::setEvent(Text event) {
  properties().exchange(&Properties::event, event);
}

KVLEvent::Text KVLEvent::data() const {
  const Properties& own = properties();
  kvl::MutexLock lock(own.mutex);
  return own.sharedData ? Text(own.sharedData->text()) : own.data;
}
void KVLEvent::setData(Text data) {
  Properties& own = properties();
  std::optional<kvl::Data> replaced;
  kvl::MutexLock lock(own.mutex);
  own.sharedData.swap(replaced);
  own.data.swap(data);
}

KVLEvent::Text KVLEvent::identifier() const {
  return properties().get(&Properties::identifier);
}
void KVLEvent::setIdentifier(Text identifier) {
  properties().exchange(&Properties::identifier, identifier);
}

bool KVLEvent::isValid() const {
  const auto name = event();
  return name && !name->empty();
}

std::size_t KVLEvent::textSize() const {
  const Properties& own = properties();
  const auto sizeOf = [](const auto& text) { return text ? text->size() : 0; };
  kvl::MutexLock lock(own.mutex);
  return sizeOf(own.event) + sizeOf(own.data) + sizeOf(own.sharedData) + sizeOf(own.identifier);
}

std::string KVLEvent::description() const {
  return kvl::format("event:%@,data:%@,id:%@", event(), data(), identifier());
}
