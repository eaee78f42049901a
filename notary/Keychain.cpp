#include "notary/Keychain.h"

#include "platform/security/Operations.h"

#include <local/platform/HostApplication.h>
#include <local/platform/Log.h>

namespace kvl::notary {
namespace {

using namespace security;

constexpr unsigned int kKeySizeInBits = 2048;
constexpr std::string_view kKeyDescription = "Client certificate key";
constexpr std::string_view kKeyComment =
    "This is safe to delete. A key will be recreated as needed.";

// Without an identifier the tag is empty, which the key store refuses.
std::string keyTag() {
  return kvl::hostIdentifier().value_or(std::string());
}

}  // namespace

Dictionary keyQuery() {
  return {{kSecClass, kSecClassKey},
          {kSecAttrKeyType, kSecAttrKeyTypeRSA},
          {kSecAttrKeyClass, kSecAttrKeyClassPrivate},
          {kSecAttrApplicationTag, Data::adoptingText(keyTag())}};
}

PairGeneration beginKeys() {
  return PairGeneration(kKeySizeInBits);
}

std::optional<Error> createKeys(KeyStore& store, KeyRef* publicKey, KeyRef* privateKey,
                                PairGeneration* begun) {
  const auto query = keyQuery();
  const Dictionary parameters{{kSecAttrKeyType, query[kSecAttrKeyType]},
                              {kSecAttrApplicationTag, query[kSecAttrApplicationTag]},
                              {kSecAttrKeySizeInBits, std::int64_t{kKeySizeInBits}},
                              {kSecAttrLabel, kvl::format("%@ (%@)", keyTag(), kKeyDescription)},
                              {kSecAttrComment, kKeyComment},
                              {kSecAttrDescription, kKeyDescription}};
  const Status status = SecKeyGeneratePair(store, parameters, publicKey, privateKey, begun);
  if (status == kSuccess) return std::nullopt;
  return Error(NSOSStatusErrorDomain, status);
}

std::optional<Error> deleteKeys(KeyStore& store) {
  auto query = keyQuery();
  query.remove(kSecAttrKeyClass);
  query.remove(kSecAttrKeyType);
  query.set(kSecMatchLimit, kSecMatchLimitAll);
  const Status status = SecItemDelete(store, query);
  if (status == kSuccess || status == errSecItemNotFound) return std::nullopt;
  return Error(NSOSStatusErrorDomain, status, {{"call", "SecItemDelete"}});
}

}  // namespace kvl::notary
