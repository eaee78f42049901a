// One stored key as one run of bytes, for stores that keep no attributes of their own.
//
// Layout: "KVLK", a version byte (1), a class byte (0 public, 1 private), then tag, label, comment,
// description and encoding, each behind its length as four bytes, most significant first. Nothing
// may follow.
#pragma once

#include "platform/security/KeyStore.h"

#include <span>

namespace kvl::security {

[[nodiscard]] WipedBytes encodePayload(const StoredKey& key);

// Absent for anything but exactly what `encodePayload` makes of a storable key: whoever shares the
// store may have put the bytes there.
[[nodiscard]] std::optional<StoredKey> decodePayload(std::span<const std::uint8_t> payload);

}  // namespace kvl::security
