#include "platform/security/HeldKey.h"

#include "platform/core/NoDestructor.h"

#include <local/platform/Mutex.h>

#include <map>
#include <utility>

namespace kvl::security {
namespace {

struct Places {
  Mutex mutex;
  std::map<const HeldKey*, KeyRef> keys KVL_GUARDED_BY(mutex);
};

Places& places() {
  static NoDestructor<Places> all;
  return *all;
}

}  // namespace

HeldKey::HeldKey() {
  Places& all = places();
  const MutexLock lock(all.mutex);
  all.keys.emplace(this, nullptr);
}

HeldKey::~HeldKey() {
  KeyRef last;
  Places& all = places();
  const MutexLock lock(all.mutex);
  const auto entry = all.keys.find(this);
  last = std::move(entry->second);
  all.keys.erase(entry);
}

KeyRef HeldKey::get() const {
  Places& all = places();
  const MutexLock lock(all.mutex);
  return all.keys.at(this);
}

void HeldKey::set(KeyRef key) {
  Places& all = places();
  const MutexLock lock(all.mutex);
  std::swap(all.keys.at(this), key);
}

std::vector<KeyRef> heldKeys() {
  Places& all = places();
  const MutexLock lock(all.mutex);
  std::vector<KeyRef> keys;
  for (const auto& [place, key] : all.keys)
    if (key) keys.push_back(key);
  return keys;
}

}  // namespace kvl::security
