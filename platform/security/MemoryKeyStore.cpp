#include "platform/core/NoDestructor.h"
#include "platform/security/KeyStore.h"

#include <local/platform/Mutex.h>

namespace kvl::security {
namespace {

// The process's keys, which its last threads may still use while it exits.
struct MemoryKeys {
  Mutex mutex;
  std::vector<StoredKey> keys KVL_GUARDED_BY(mutex);
};

MemoryKeys& memoryKeys() {
  static NoDestructor<MemoryKeys> keys;
  return *keys;
}

class MemoryKeyStore final : public KeyStore {
 public:
  std::string_view name() const noexcept override { return "process memory"; }

  Status add(const StoredKey& key, Deadline) override {
    if (const Status status = checkStorable(key); status != kSuccess) return status;
    const MutexLock lock(memory_.mutex);
    memory_.keys.push_back(key);
    return kSuccess;
  }

  Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys,
              Deadline) override {
    std::vector<StoredKey> found;
    const MutexLock lock(memory_.mutex);
    for (const StoredKey& key : memory_.keys)
      if (!tag || key.tag == *tag) found.push_back(key);
    keys = std::move(found);
    return kSuccess;
  }

  Status remove(std::string_view tag, std::optional<Key::Class> keyClass, Deadline) override {
    const MutexLock lock(memory_.mutex);
    const auto removed = std::erase_if(memory_.keys, [&](const StoredKey& key) {
      return key.tag == tag && (!keyClass || key.keyClass == *keyClass);
    });
    if (removed == 0) return errSecItemNotFound;
    return kSuccess;
  }

 private:
  MemoryKeys& memory_ = memoryKeys();
};

}  // namespace

std::shared_ptr<KeyStore> makeMemoryKeyStore() {
  return std::make_shared<MemoryKeyStore>();
}

}  // namespace kvl::security
