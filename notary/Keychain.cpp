// The client's key pair in the key store.
#include "platform/security/KeyStore.h"
#include "platform/security/Operations.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>
#include <local/platform/Log.h>

namespace {

using namespace kvl::security;

constexpr std::int64_t kKeySizeInBits = 2048;
constexpr std::string_view kKeyDescription = "Client certificate key";
constexpr std::string_view kKeyComment =
    "This is safe to delete. A key will be recreated as needed.";

// Without an identifier the tag is empty, which the key store refuses.
std::string hostIdentifier() {
  return kvl::hostIdentifier().value_or(std::string());
}

}  // namespace

kvl::Dictionary KVLNotary::keyQuery() {
  return {{kSecClass, kSecClassKey},
          {kSecAttrKeyType, kSecAttrKeyTypeRSA},
          {kSecAttrKeyClass, kSecAttrKeyClassPrivate},
          {kSecAttrApplicationTag, kvl::Data::adoptingText(hostIdentifier())}};
}

std::optional<kvl::Error> KVLNotary::createKeysPublic(kvl::KeyRef* publicKey,
                                                      kvl::KeyRef* privateKey) {
  const auto query = keyQuery();
  const kvl::Dictionary parameters{
      {kSecAttrKeyType, query[kSecAttrKeyType]},
      {kSecAttrApplicationTag, query[kSecAttrApplicationTag]},
      {kSecAttrKeySizeInBits, kKeySizeInBits},
      {kSecAttrLabel, kvl::format("%@ (%@)", hostIdentifier(), kKeyDescription)},
      {kSecAttrComment, kKeyComment},
      {kSecAttrDescription, kKeyDescription}};
  const kvl::Status status =
      SecKeyGeneratePair(*defaultKeyStore(), parameters, publicKey, privateKey);
  if (status == kvl::kSuccess) return std::nullopt;
  return kvl::Error(kvl::NSOSStatusErrorDomain, status);
}

std::optional<kvl::Error> KVLNotary::deleteKeys() {
  auto query = keyQuery();
  query.remove(kSecAttrKeyClass);
  query.remove(kSecAttrKeyType);
  query.set(kSecMatchLimit, kSecMatchLimitAll);
  const kvl::Status status = SecItemDelete(*defaultKeyStore(), query);
  if (status == kvl::kSuccess || status == kvl::errSecItemNotFound) return std::nullopt;
  return kvl::Error(kvl::NSOSStatusErrorDomain, status, {{"call", "SecItemDelete"}});
}
