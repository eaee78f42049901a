#include "platform/security/KeyQuery.h"

#include "platform/security/StoredKeyRules.h"

#include <algorithm>
#include <array>

namespace kvl::security {
namespace {

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

}  // namespace

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

}  // namespace kvl::security
