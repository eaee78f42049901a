// The dictionaries that the key operations take, read and checked.
#pragma once

#include "platform/security/KeyStore.h"
#include "platform/security/Operations.h"

#include <optional>
#include <string>

namespace kvl::security {

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

// Absent when an entry is missing, of the wrong type or not supported. A tag may be data or text.
[[nodiscard]] std::optional<KeyQuery> readKeyQuery(const Dictionary& query);
[[nodiscard]] std::optional<KeyPairParameters> readKeyPairParameters(const Dictionary& parameters);

}  // namespace kvl::security
