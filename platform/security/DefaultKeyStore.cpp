#include "platform/security/KeyStore.h"

#include <mutex>

namespace kvl::security {
namespace {

struct DefaultStore {
  std::mutex mutex;
  std::shared_ptr<KeyStore> store;
};

// Never destroyed: a host's threads may delete their keys while the process exits.
DefaultStore& defaultStore() {
  static auto* const store = new DefaultStore;
  return *store;
}

}  // namespace

std::shared_ptr<KeyStore> defaultKeyStore() {
  DefaultStore& current = defaultStore();
  const std::lock_guard lock(current.mutex);
  if (!current.store)
    current.store = makeFallbackKeyStore(
        {makeSecretServiceKeyStore(), makeKernelKeyringKeyStore(), makeMemoryKeyStore()});
  return current.store;
}

void setDefaultKeyStore(std::shared_ptr<KeyStore> store) {
  DefaultStore& current = defaultStore();
  const std::lock_guard lock(current.mutex);
  current.store.swap(store);
}

}  // namespace kvl::security
