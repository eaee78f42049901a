// Private RSA keys as PKCS#8 (RFC 5958) in DER, without the copies that OpenSSL's encoders and
// decoders leave in memory that they give back.
#pragma once

#include "platform/security/OpenSSLAccess.h"

#include <span>

namespace kvl::security {

// The same bytes as OpenSSL's. Empty when the key is no private RSA key of two primes.
[[nodiscard]] WipedBytes encodeRSAPrivateKey(const EVP_PKEY& key);

// Null when the bytes are not exactly such a key, as `encodeRSAPrivateKey` writes it.
[[nodiscard]] OpenSSLPtr<EVP_PKEY> decodeRSAPrivateKey(std::span<const std::uint8_t> bytes);

}  // namespace kvl::security
