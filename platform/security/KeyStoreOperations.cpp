// The operations on keys in a key store, and the dictionaries that tell them what to do.
#include "platform/core/NoDestructor.h"
#include "platform/security/EqualObjects.h"
#include "platform/security/HeldKey.h"
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>

namespace kvl::security {
namespace {

struct KeyQuery {
  std::string tag;
  std::optional<Key::Class> keyClass;
  bool matchesNothing = false;  // asks for a key type that is never stored
  bool matchesAll = false;      // not just the first
};

struct KeyPairParameters {
  std::string tag;
  unsigned int sizeInBits = 0;
  std::string label;
  std::string comment;
  std::string description;
};

// Smaller keys are too weak for TLS; larger ones only cost time.
constexpr std::array<std::int64_t, 3> kKeySizes{2048, 3072, 4096};

std::optional<std::string> readTag(const Dictionary& dictionary) {
  const Value& value = dictionary[kSecAttrApplicationTag];
  std::string tag;
  if (const std::optional<Data> data = value.data()) tag = data->text();
  if (const auto text = value.string()) tag = *text;
  if (!isUsableTag(tag)) return std::nullopt;
  return tag;
}

bool holds(const Dictionary& dictionary, std::string_view key, std::string_view text) {
  return dictionary[key].string() == text;
}

std::optional<Key::Class> readKeyClass(const Dictionary& query) {
  if (holds(query, kSecAttrKeyClass, kSecAttrKeyClassPrivate)) return Key::Class::privateKey;
  if (holds(query, kSecAttrKeyClass, kSecAttrKeyClassPublic)) return Key::Class::publicKey;
  return std::nullopt;
}

std::optional<unsigned int> readKeySize(const Dictionary& parameters) {
  const std::int64_t size = parameters[kSecAttrKeySizeInBits].integer().value_or(0);
  if (std::ranges::find(kKeySizes, size) == kKeySizes.end()) return std::nullopt;
  return static_cast<unsigned int>(size);
}

// Absent when an entry is missing, of the wrong type or not supported. A tag may be data or text.
std::optional<KeyQuery> readKeyQuery(const Dictionary& query) {
  const std::optional<std::string> tag = readTag(query);
  if (!tag || !holds(query, kSecClass, kSecClassKey)) return std::nullopt;
  KeyQuery result{*tag, readKeyClass(query), false, false};
  if (query.contains(kSecAttrKeyClass) && !result.keyClass) return std::nullopt;
  if (query.contains(kSecAttrKeyType)) {
    if (!query[kSecAttrKeyType].string()) return std::nullopt;
    result.matchesNothing = !holds(query, kSecAttrKeyType, kSecAttrKeyTypeRSA);
  }
  if (query.contains(kSecMatchLimit)) {
    if (!holds(query, kSecMatchLimit, kSecMatchLimitAll)) return std::nullopt;
    result.matchesAll = true;
  }
  return result;
}

// Absent as above.
std::optional<KeyPairParameters> readKeyPairParameters(const Dictionary& parameters) {
  const std::optional<std::string> tag = readTag(parameters);
  const std::optional<unsigned int> size = readKeySize(parameters);
  const auto label = parameters[kSecAttrLabel].string();
  const auto comment = parameters[kSecAttrComment].string();
  const auto description = parameters[kSecAttrDescription].string();
  if (!tag || !size || !label || !comment || !description ||
      !holds(parameters, kSecAttrKeyType, kSecAttrKeyTypeRSA))
    return std::nullopt;
  return KeyPairParameters{*tag, *size, std::string(*label), std::string(*comment),
                           std::string(*description)};
}

Deadline operationDeadline() {
  return std::chrono::steady_clock::now() + kKeyStoreTimeLimit;
}

StoredKey entryFor(const KeyRef& key, const KeyPairParameters& parameters) {
  return {parameters.tag,     key->keyClass(),        parameters.label,
          parameters.comment, parameters.description, encodeKey(*key)};
}

// Both halves or none: the public one goes first, so that no private key stays behind alone.
Status storePair(KeyStore& store, const KeyPair& pair, const KeyPairParameters& parameters) {
  const Status status = store.addPair(entryFor(pair.publicKey, parameters),
                                      entryFor(pair.privateKey, parameters), operationDeadline());
  if (status != kSuccess)
    // What is left then is a public key without a use, which the next deletion takes away.
    static_cast<void>(store.remove(parameters.tag, Key::Class::publicKey, operationDeadline()));
  return status;
}

// Identities by their parts, which live at least as long.
using IdentityParts = std::pair<const Certificate*, const Key*>;

EqualObjects<IdentityParts, Identity>& identities() {
  static NoDestructor<EqualObjects<IdentityParts, Identity>> all;
  return *all;
}

IdentityRef makeIdentity(const CertificateRef& certificate, const KeyRef& key) {
  return identities().unify({certificate.get(), key.get()},
                            std::make_unique<const Identity>(certificate, key));
}

// Finds the private key that a certificate was issued for.
class CertifiedKey {
 public:
  explicit CertifiedKey(const Certificate& certificate)
      : certificate_(nativeCertificate(certificate)),
        publicKey_(certificate_ ? X509_get0_pubkey(certificate_.get()) : nullptr) {}

  [[nodiscard]] KeyRef among(const std::vector<KeyRef>& keys) const {
    const auto found = std::ranges::find_if(keys, [this](const KeyRef& key) { return fits(key); });
    return found == keys.end() ? nullptr : *found;
  }

  // Decodes no more keys than it must.
  [[nodiscard]] KeyRef among(const std::vector<StoredKey>& stored) const {
    for (const StoredKey& entry : stored) {
      if (entry.keyClass != Key::Class::privateKey) continue;
      if (KeyRef key = decodeKey(entry.encoded, Key::Class::privateKey); fits(key)) return key;
    }
    return nullptr;
  }

 private:
  [[nodiscard]] bool fits(const KeyRef& key) const {
    return key && key->keyClass() == Key::Class::privateKey && publicKey_ != nullptr &&
           EVP_PKEY_eq(publicKey_, nativeKey(*key)) == 1;
  }

  const ErrorQueueMark mark_;
  const OpenSSLPtr<X509> certificate_;
  const EVP_PKEY* const publicKey_;
};

}  // namespace

Status SecKeyGeneratePair(KeyStore& store, const Dictionary& parameters, KeyRef* publicKey,
                          KeyRef* privateKey, PairGeneration* begun) {
  keepOpenSSLUntilTheEnd();
  const std::optional<KeyPairParameters> read = readKeyPairParameters(parameters);
  if (!read) return errSecParam;
  store.expectKey();
  const bool isBegun = begun != nullptr && begun->sizeInBits() == read->sizeInBits;
  const auto pair = isBegun ? begun->take() : generatePair(read->sizeInBits);
  if (!pair) return errSecInternalComponent;
  if (const Status status = storePair(store, *pair, *read); status != kSuccess) return status;
  if (publicKey != nullptr) *publicKey = pair->publicKey;
  if (privateKey != nullptr) *privateKey = pair->privateKey;
  return kSuccess;
}

Status SecItemDelete(KeyStore& store, const Dictionary& query) {
  const std::optional<KeyQuery> read = readKeyQuery(query);
  if (!read) return errSecParam;
  if (read->matchesNothing) return errSecItemNotFound;
  return store.remove(read->tag, read->keyClass, operationDeadline());
}

Status SecItemCopyMatching(KeyStore& store, const Dictionary& query, std::vector<KeyRef>& keys) {
  const std::optional<KeyQuery> read = readKeyQuery(query);
  if (!read) return errSecParam;
  std::vector<StoredKey> stored;
  const Status status = store.find(read->tag, stored, operationDeadline());
  if (status != kSuccess) return status;
  std::vector<KeyRef> found;
  for (const StoredKey& entry : stored) {
    if (read->matchesNothing || (read->keyClass && *read->keyClass != entry.keyClass)) continue;
    if (!found.empty() && !read->matchesAll) break;
    if (KeyRef key = decodeKey(entry.encoded, entry.keyClass)) found.push_back(std::move(key));
  }
  if (found.empty()) return errSecItemNotFound;
  keys = std::move(found);
  return kSuccess;
}

Status SecIdentityCreateWithCertificate(KeyStore& store, const CertificateRef& certificate,
                                        IdentityRef& identity,
                                        std::optional<std::string_view> tag) {
  if (!certificate) return errSecParam;
  const CertifiedKey certified(*certificate);
  KeyRef key = certified.among(heldKeys());
  if (!key) {
    std::vector<StoredKey> stored;
    const Status status = store.find(tag, stored, operationDeadline());
    if (status != kSuccess) return status;
    key = certified.among(stored);
  }
  if (!key) return errSecItemNotFound;
  identity = makeIdentity(certificate, key);
  return kSuccess;
}

}  // namespace kvl::security
