// One stored key as one run of bytes, for stores that keep no attributes of their own.
//
// Layout: "KVLK", a version byte, a class byte (0 public, 1 private), then tag, label, comment and
// description, each behind its length as four bytes, most significant first. In version 1 the
// encoding follows in the same way. In version 2, for a private RSA key whose other numbers follow
// from them, these do: public exponent, first and second prime, most significant byte first.
// Nothing may follow.
#pragma once

#include "platform/security/KeyStore.h"

#include <span>

namespace kvl::security {

[[nodiscard]] WipedBytes encodePayload(const StoredKey& key);

// Absent for anything but exactly what `encodePayload` makes of a storable key, or what it made
// before there was version 2: whoever shares the store may have put the bytes there.
[[nodiscard]] std::optional<StoredKey> decodePayload(std::span<const std::uint8_t> payload);

}  // namespace kvl::security
