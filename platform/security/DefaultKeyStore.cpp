#include "platform/core/NoDestructor.h"
#include "platform/security/KeyStore.h"

namespace kvl::security {

std::shared_ptr<KeyStore> makeDefaultKeyStore() {
  return makeFallbackKeyStore(
      {makeSecretServiceKeyStore(), makeKernelKeyringKeyStore(), makeMemoryKeyStore()});
}

std::shared_ptr<KeyStore> defaultKeyStore() {
  // Never destroyed: a host's threads may delete their keys while the process exits.
  static const NoDestructor<std::shared_ptr<KeyStore>> store(makeDefaultKeyStore());
  return *store;
}

}  // namespace kvl::security
