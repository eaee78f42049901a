// The private keys that somebody in this process holds on to, whatever has become of their entries
// in a key store.
#pragma once

#include <local/platform/Security.h>

#include <vector>

namespace kvl::security {

// A place for one private key. The key in it is found for a certificate (see
// `SecIdentityCreateWithCertificate`) until another one takes its place or the place goes.
// Thread-safe.
class HeldKey {
 public:
  HeldKey();
  ~HeldKey();
  HeldKey(const HeldKey&) = delete;
  HeldKey& operator=(const HeldKey&) = delete;

  // Null at first.
  [[nodiscard]] KeyRef get() const;
  void set(KeyRef key);
};

// The keys in all places.
[[nodiscard]] std::vector<KeyRef> heldKeys();

}  // namespace kvl::security
