#include "platform/security/KeyStore.h"

namespace kvl::security {

std::shared_ptr<KeyStore> makeDefaultKeyStore() {
  return makeFallbackKeyStore(
      {makeSecretServiceKeyStore(), makeKernelKeyringKeyStore(), makeMemoryKeyStore()});
}

}  // namespace kvl::security
