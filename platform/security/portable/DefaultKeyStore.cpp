#include "platform/security/KeyStore.h"

namespace kvl::security {

// No store of POSIX's keeps keys from other programs of the user but a process's memory.
std::shared_ptr<KeyStore> makeDefaultKeyStore() {
  return makeMemoryKeyStore();
}

}  // namespace kvl::security
