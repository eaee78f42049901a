// Where keys are kept between their making and their deletion. One implementation per kind of
// store; all behave alike, which one conformance suite checks.
#pragma once

#include "platform/security/WipedBytes.h"

#include <local/platform/Data.h>
#include <local/platform/Export.h>
#include <local/platform/Security.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::security {

// One stored key. `encoded` is DER: PKCS#8 (RFC 5958) for a private key, SubjectPublicKeyInfo for a
// public one; it wipes itself.
struct StoredKey {
  std::string tag;
  Key::Class keyClass = Key::Class::privateKey;
  std::string label;
  std::string comment;
  std::string description;
  WipedBytes encoded;
};

// Longest tag, label, comment and description in bytes, and longest encoding of a key. An RSA key
// of 4096 bits needs 2.4 KB; the kernel keyring holds 32 KB in all.
inline constexpr std::size_t kMaximumTextSize = 1024;
inline constexpr std::size_t kMaximumKeySize = 16384;

// Both are exported for the library's own modules.
//
// What every store accepts, so that all behave alike: kSuccess; errSecParam for an empty tag, an
// empty key, or a text that is not UTF-8 or holds NUL; errSecDataTooLarge beyond the sizes above.
[[nodiscard]] KVL_EXPORT Status checkStorable(const StoredKey& key);

// Whether any key may be stored under this tag.
[[nodiscard]] KVL_EXPORT bool isUsableTag(std::string_view tag);

using Deadline = std::chrono::steady_clock::time_point;

// Thread-safe. Every call returns by its deadline, with errSecNotAvailable when the store did not
// answer in time, is not there or cannot take part. A store that is there and fails answers
// errSecInteractionNotAllowed when it is locked, else errSecInternalComponent. Nobody is ever asked
// to unlock or allow anything. Nothing of a key is ever logged.
class KeyStore {
 public:
  virtual ~KeyStore() = default;
  // A short name for the log, such as "Secret Service".
  [[nodiscard]] virtual std::string_view name() const noexcept = 0;
  // A key will come soon: what the store needs for it may be got ready beside. Waits for nothing.
  virtual void expectKey() {}
  // Never replaces a key. A store that outlives processes deletes at this occasion keys that were
  // left behind by processes that have ended, of any tag. Refuses what `checkStorable` refuses;
  // errSecDataTooLarge also when the store is full.
  [[nodiscard]] virtual Status add(const StoredKey& key, Deadline deadline) = 0;
  // Both halves of a new pair, which a store may take at once. After a failure the public one may
  // be there.
  [[nodiscard]] virtual Status addPair(const StoredKey& publicHalf, const StoredKey& privateHalf,
                                       Deadline deadline) {
    const Status status = add(publicHalf, deadline);
    return status == kSuccess ? add(privateHalf, deadline) : status;
  }
  // All keys of the tag, or of every tag that this framework stored when absent. None is a success
  // too; on failure `keys` stays as it was.
  [[nodiscard]] virtual Status find(std::optional<std::string_view> tag,
                                    std::vector<StoredKey>& keys, Deadline deadline) = 0;
  // Deletes the keys of the tag, narrowed to one class when given. errSecItemNotFound: none there.
  // A failure may have left any of them.
  [[nodiscard]] virtual Status remove(std::string_view tag, std::optional<Key::Class> keyClass,
                                      Deadline deadline) = 0;
};

[[nodiscard]] std::shared_ptr<KeyStore> makeSecretServiceKeyStore();
// One that gives up what it holds of the bus after that long without an operation.
[[nodiscard]] std::shared_ptr<KeyStore> makeSecretServiceKeyStore(
    std::chrono::nanoseconds idleTime);
[[nodiscard]] std::shared_ptr<KeyStore> makeKernelKeyringKeyStore();
[[nodiscard]] std::shared_ptr<KeyStore> makeMemoryKeyStore();

// How long a store that let its time run out is left alone, so that later calls are quick.
inline constexpr std::chrono::seconds kHungStorePause{60};

// Keeps keys in the first of `stores` that takes them; the choice is logged when it is not the
// first store, and again whenever it changes. Finding and removing reach all stores that are
// available, since keys are spread when one was away for a while. Removing fails when it failed, or
// found no end in time, in any of them; a store that is not there or left alone counts as empty.
// The call's deadline is shared by all stores: one that hangs uses up at most three quarters of the
// time that is left.
[[nodiscard]] std::shared_ptr<KeyStore> makeFallbackKeyStore(
    std::vector<std::shared_ptr<KeyStore>> stores,
    std::chrono::milliseconds pause = kHungStorePause);

// Time that one operation on the default store may take in all.
inline constexpr std::chrono::seconds kKeyStoreTimeLimit{2};

// Secret Service, kernel keyring and process memory, in this order, as far as the system has them.
[[nodiscard]] std::shared_ptr<KeyStore> makeDefaultKeyStore();
// The process's own store of that kind, made on first use and never destroyed.
[[nodiscard]] std::shared_ptr<KeyStore> defaultKeyStore();

}  // namespace kvl::security
