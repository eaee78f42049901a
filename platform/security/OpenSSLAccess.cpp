#include "platform/security/OpenSSLAccess.h"

#include <openssl/err.h>

namespace kvl::security {

std::string takeOpenSSLError() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
  return reason == nullptr ? "unknown error" : reason;
}

ErrorQueueMark::ErrorQueueMark() noexcept {
  ERR_set_mark();
}

ErrorQueueMark::~ErrorQueueMark() {
  ERR_pop_to_mark();
}

void keepOpenSSLUntilTheEnd() noexcept {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

}  // namespace kvl::security
