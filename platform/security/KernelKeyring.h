// The kernel's keyrings, see keyrings(7), as far as the key store needs them.
#pragma once

#include "platform/security/WipedBytes.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::security::kernel {

// A key or keyring.
using Serial = std::int32_t;

// The keyring that all processes of this user share, and the calling thread's own.
[[nodiscard]] Serial userKeyring() noexcept;
[[nodiscard]] Serial threadKeyring() noexcept;

struct Description {
  std::string type;    // "keyring" or "user"
  bool isOwn = false;  // belongs to this process's user
  std::string text;
};

// Every function that returns an int answers 0 or an errno number.

// Makes an empty keyring, or a key that holds `payload`, which all processes of this user may read
// and change, and links it into `parent`. A keyring of the same description is displaced.
[[nodiscard]] int makeRing(const std::string& description, Serial parent, Serial& ring);
[[nodiscard]] int makeKey(const std::string& description, std::span<const std::uint8_t> payload,
                          Serial parent);

// The keyring of that description directly or further inside `parent`; ENOKEY when there is none.
[[nodiscard]] int findRing(const std::string& description, Serial parent, Serial& ring);

// What is linked into the keyring.
[[nodiscard]] int list(Serial ring, std::vector<Serial>& entries);

// Absent when the key went away or may not be seen.
[[nodiscard]] std::optional<Description> describe(Serial key);
[[nodiscard]] std::optional<WipedBytes> read(Serial key);

// What is in no keyring any more goes, unless a thread's own keyring holds it for a while.
[[nodiscard]] int link(Serial key, Serial parent);
[[nodiscard]] int unlink(Serial key, Serial parent);

// Makes it unusable for whoever still holds it; the kernel wipes a key's payload then.
void revoke(Serial key) noexcept;

// Takes it out of `parent` and revokes it.
[[nodiscard]] int destroy(Serial key, Serial parent);

}  // namespace kvl::security::kernel
