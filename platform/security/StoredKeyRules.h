// What every key store takes, so that all behave alike.
#pragma once

#include "platform/security/KeyStore.h"

namespace kvl::security {

// Longest tag, label, comment and description in bytes, and longest encoding of a key. An RSA key
// of 4096 bits needs 2.4 KB; the kernel keyring holds 32 KB in all.
inline constexpr std::size_t kMaximumTextSize = 1024;
inline constexpr std::size_t kMaximumKeySize = 16384;

// kSuccess; errSecParam for an empty tag, an empty key, or a text that is not UTF-8 or holds NUL;
// errSecDataTooLarge beyond the sizes above.
[[nodiscard]] Status checkStorable(const StoredKey& key);

// Whether any key may be stored under this tag.
[[nodiscard]] bool isUsableTag(std::string_view tag);

}  // namespace kvl::security
