// Certificate signing requests for tests, good ones and bad ones.
#pragma once

#include "devservice/OpenSSLPointers.h"

#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

using DER = std::vector<unsigned char>;

[[nodiscard]] devservice::KeyPtr makeRSAKey(unsigned bits = 2048);
// Signed by `key`.
[[nodiscard]] DER makeRequest(EVP_PKEY* key, long version = 0, const EVP_MD* digest = EVP_sha256());
[[nodiscard]] std::string pemOf(const DER& der, std::string_view label = "CERTIFICATE REQUEST");
// Unencrypted, for files of a test.
[[nodiscard]] std::string keyText(EVP_PKEY* key);

}  // namespace kvltest
