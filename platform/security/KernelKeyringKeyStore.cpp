#include "platform/security/KernelKeyring.h"
#include "platform/security/KeyPayload.h"
#include "platform/security/KeyStore.h"
#include "platform/security/ProcessMarks.h"

#include <local/platform/Mutex.h>

#include <openssl/rand.h>

#include <array>
#include <cerrno>

namespace kvl::security {
namespace {

using kernel::Serial;

// A ring's description is this and the tag.
constexpr std::string_view kRingPrefix = "korvale.vandrel.local.keys:";
// How often a key is put into its ring anew because another process replaced or removed the ring
// meanwhile; one attempt takes some microseconds.
constexpr int kAttempts = 50;

std::string ringName(std::string_view tag) {
  return std::string(kRingPrefix) + std::string(tag);
}

// Keys in one ring must differ in description, or the later would replace the earlier. Behind a
// random part stands who made the key: that can be read without the key.
constexpr std::string_view kKeyPrefix = "key-";
constexpr std::size_t kRandomBytes = 16;

std::string uniqueName() {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::array<unsigned char, kRandomBytes> random{};
  RAND_bytes(random.data(), static_cast<int>(random.size()));
  std::string name(kKeyPrefix);
  for (const unsigned char byte : random) {
    name.push_back(kDigits[byte >> 4]);
    name.push_back(kDigits[byte & 15]);
  }
  if (const std::optional<std::string> maker = ProcessMarks().own()) name += "-" + *maker;
  return name;
}

// Empty when it is not told.
std::string_view makerIn(std::string_view name) {
  constexpr std::size_t kStart = kKeyPrefix.size() + 2 * kRandomBytes + 1;
  return name.starts_with(kKeyPrefix) && name.size() > kStart ? name.substr(kStart) : "";
}

// Whether the key or ring was not there, or another process removed it meanwhile.
bool isGone(int error) {
  return error == ENOKEY || error == EKEYREVOKED || error == EKEYEXPIRED || error == ENOENT;
}

// Of the user keyring: whoever may not use it has no such store.
Status statusOf(int error) {
  if (error == 0) return kSuccess;
  if (isGone(error)) return errSecItemNotFound;
  if (error == EDQUOT) return errSecDataTooLarge;
  return errSecNotAvailable;
}

int findOrMakeRing(const std::string& name, Serial& ring) {
  const int error = kernel::findRing(name, kernel::userKeyring(), ring);
  return isGone(error) ? kernel::makeRing(name, kernel::userKeyring(), ring) : error;
}

bool isCurrent(const std::string& name, Serial ring) {
  Serial current = 0;
  return kernel::findRing(name, kernel::userKeyring(), current) == 0 && current == ring;
}

// Two processes that make the ring of one tag at the same time displace one another's, so a key
// counts as stored only when its ring is still the one that others find.
int addPayload(const std::string& ringName, const WipedBytes& payload) {
  const std::string keyName = uniqueName();
  int error = 0;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Serial ring = 0;
    error = findOrMakeRing(ringName, ring);
    if (error == 0) error = kernel::makeKey(keyName, payload, ring);
    if (error == 0 && isCurrent(ringName, ring)) return 0;
    if (error == EDQUOT) return error;
  }
  return error == 0 ? EAGAIN : error;
}

void readRing(Serial ring, std::vector<StoredKey>& keys) {
  std::vector<Serial> entries;
  if (kernel::list(ring, entries) != 0) return;
  for (const Serial entry : entries) {
    const std::optional<WipedBytes> payload = kernel::read(entry);
    std::optional<StoredKey> key = payload ? decodePayload(*payload) : std::nullopt;
    if (key) keys.push_back(std::move(*key));
  }
}

bool isRingOfOurs(Serial entry) {
  const std::optional<kernel::Description> description = kernel::describe(entry);
  return description && description->isOwn && description->type == "keyring" &&
         description->text.starts_with(kRingPrefix);
}

int findRings(std::optional<std::string_view> tag, std::vector<Serial>& rings) {
  if (tag) {
    Serial ring = 0;
    const int error = kernel::findRing(ringName(*tag), kernel::userKeyring(), ring);
    if (error == 0) rings.push_back(ring);
    return isGone(error) ? 0 : error;
  }
  std::vector<Serial> entries;
  const int error = kernel::list(kernel::userKeyring(), entries);
  for (const Serial entry : entries)
    if (isRingOfOurs(entry)) rings.push_back(entry);
  return error;
}

bool isOfClass(Serial entry, Key::Class keyClass) {
  const std::optional<WipedBytes> payload = kernel::read(entry);
  const std::optional<StoredKey> key = payload ? decodePayload(*payload) : std::nullopt;
  return key && key->keyClass == keyClass;
}

// Of a ring that is there.
Status failureOf(int error) {
  if (isGone(error)) return errSecItemNotFound;
  return errSecInternalComponent;
}

// Another process may be putting a key into the ring: what is found there once nobody can find the
// ring any more moves to the ring that takes its place.
void removeEmptyRing(const std::string& name, Serial ring) {
  if (kernel::link(ring, kernel::threadKeyring()) != 0) return;
  std::vector<Serial> late;
  if (kernel::unlink(ring, kernel::userKeyring()) == 0 && kernel::list(ring, late) == 0) {
    Serial current = 0;
    for (const Serial entry : late)
      if (findOrMakeRing(name, current) == 0) (void)kernel::link(entry, current);
    kernel::revoke(ring);
  }
  (void)kernel::unlink(ring, kernel::threadKeyring());
}

// Destroys what matches, what nobody can read included unless a class is given. Goes on after a
// failure.
Status removeFrom(const std::string& name, Serial ring, std::optional<Key::Class> keyClass) {
  std::vector<Serial> entries;
  if (const int error = kernel::list(ring, entries)) return failureOf(error);
  Status result = errSecItemNotFound;
  int failure = 0;
  bool isEmpty = true;
  for (const Serial entry : entries) {
    const bool matches = !keyClass || isOfClass(entry, *keyClass);
    const int error = matches ? kernel::destroy(entry, ring) : 0;
    if (matches && error == 0) result = kSuccess;
    if (error != 0 && !isGone(error)) failure = error;
    if (!matches || failure != 0) isEmpty = false;
  }
  if (isEmpty) removeEmptyRing(name, ring);
  return failure == 0 ? result : failureOf(failure);
}

void removeLeftOversIn(Serial ring, const ProcessMarks& marks) {
  std::vector<Serial> entries;
  const std::optional<kernel::Description> itself = kernel::describe(ring);
  if (!itself || kernel::list(ring, entries) != 0) return;
  std::size_t left = entries.size();
  for (const Serial entry : entries) {
    const std::optional<kernel::Description> key = kernel::describe(entry);
    const bool isLeftOver = key && marks.isOfEndedProcess(makerIn(key->text));
    if (isLeftOver && kernel::destroy(entry, ring) == 0) --left;
  }
  if (left == 0) removeEmptyRing(itself->text, ring);
}

// The keyring is small, so what programs left behind that ended without deleting it makes way for
// others.
void removeLeftOvers() {
  std::vector<Serial> rings;
  if (findRings(std::nullopt, rings) != 0) return;
  const ProcessMarks marks;
  for (const Serial ring : rings) removeLeftOversIn(ring, marks);
}

// The system calls never wait, so the deadlines play no part.
class KernelKeyringKeyStore final : public KeyStore {
 public:
  std::string_view name() const noexcept override { return "kernel keyring"; }

  Status add(const StoredKey& key, Deadline) override {
    if (const Status status = checkStorable(key); status != kSuccess) return status;
    const MutexLock lock(mutex_);
    removeLeftOvers();
    const Status status = statusOf(addPayload(ringName(key.tag), encodePayload(key)));
    if (status == errSecItemNotFound) return errSecNotAvailable;
    return status;
  }

  Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys,
              Deadline) override {
    std::vector<StoredKey> found;
    if (!tag || isUsableTag(*tag)) {
      const MutexLock lock(mutex_);
      std::vector<Serial> rings;
      if (const int error = findRings(tag, rings)) return statusOf(error);
      for (const Serial ring : rings) readRing(ring, found);
    }
    keys = std::move(found);
    return kSuccess;
  }

  Status remove(std::string_view tag, std::optional<Key::Class> keyClass, Deadline) override {
    if (!isUsableTag(tag)) return errSecItemNotFound;
    const MutexLock lock(mutex_);
    Serial ring = 0;
    const std::string name = ringName(tag);
    const int error = kernel::findRing(name, kernel::userKeyring(), ring);
    return error == 0 ? removeFrom(name, ring, keyClass) : statusOf(error);
  }

 private:
  Mutex mutex_;  // held for a whole operation: this process's own threads never interfere
};

}  // namespace

std::shared_ptr<KeyStore> makeKernelKeyringKeyStore() {
  return std::make_shared<KernelKeyringKeyStore>();
}

}  // namespace kvl::security
