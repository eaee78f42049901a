// Keys as bytes: PKCS#8 (RFC 5958) for private keys, SubjectPublicKeyInfo (RFC 5280) for public.
#pragma once

#include "platform/security/WipedBytes.h"

#include <local/platform/Security.h>

#include <span>

namespace kvl::security {

// Empty when the key cannot be encoded.
[[nodiscard]] WipedBytes encodeKey(const Key& key);

// Null when the bytes are not exactly one key of that class.
[[nodiscard]] KeyRef decodeKey(std::span<const std::uint8_t> bytes, Key::Class keyClass);

}  // namespace kvl::security
