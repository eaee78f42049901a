// Private RSA keys as PKCS#8 (RFC 5958) in DER, without the copies that OpenSSL's encoders and
// decoders leave in memory that they give back.
#pragma once

#include "platform/security/OpenSSLAccess.h"

#include <optional>
#include <span>

namespace kvl::security {

// The same bytes as OpenSSL's. Empty when the key is no private RSA key of two primes.
[[nodiscard]] WipedBytes encodeRSAPrivateKey(const EVP_PKEY& key);

// Null when the bytes are not exactly such a key, as `encodeRSAPrivateKey` writes it.
[[nodiscard]] OpenSSLPtr<EVP_PKEY> decodeRSAPrivateKey(std::span<const std::uint8_t> bytes);

// What all other numbers of a key follow from, most significant byte first: less than a quarter of
// its encoding.
struct RSAPrimes {
  WipedBytes exponent;  // the public one
  WipedBytes first;
  WipedBytes second;
};

// Absent when the bytes are not exactly what `encodeRSAPrivateKey(primes)` makes of them again.
[[nodiscard]] std::optional<RSAPrimes> primesOfRSAPrivateKey(std::span<const std::uint8_t> bytes);
// Empty when there is no such key.
[[nodiscard]] WipedBytes encodeRSAPrivateKey(const RSAPrimes& primes);

}  // namespace kvl::security
