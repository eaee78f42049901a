#include "platform/security/WipedBytes.h"

#include <openssl/crypto.h>

namespace kvl::security {

void wipe(void* memory, std::size_t size) noexcept {
  OPENSSL_cleanse(memory, size);
}

}  // namespace kvl::security
