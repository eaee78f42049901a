#include "platform/urlloading/CurlLibrary.h"

#include "platform/security/OpenSSLAccess.h"

namespace kvl::urlloading {

bool prepareCurl() {
  security::keepOpenSSLUntilTheEnd();
  static const bool prepared = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return prepared;
}

}  // namespace kvl::urlloading
