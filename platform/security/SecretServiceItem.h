// How a stored key looks as an item of the Secret Service.
#pragma once

#include "platform/security/GLibPointers.h"
#include "platform/security/KeyStore.h"

#include <libsecret/secret.h>

namespace kvl::security {

struct ValueDeleter {
  void operator()(SecretValue* value) const noexcept { secret_value_unref(value); }
};
using ValuePtr = std::unique_ptr<SecretValue, ValueDeleter>;

// What all items of this framework have in common.
[[nodiscard]] const SecretSchema& itemSchema();

// The attributes (texts by text) that the keys of `tag` and `keyClass` have, each if given.
[[nodiscard]] GLibPtr<GHashTable> matchingAttributes(std::optional<std::string_view> tag,
                                                     std::optional<Key::Class> keyClass);

// The item's D-Bus properties (variants by name): its label and all its attributes.
[[nodiscard]] GLibPtr<GHashTable> itemProperties(const StoredKey& key);

// The key's encoding; the copy is wiped with the last reference.
[[nodiscard]] ValuePtr itemValue(const StoredKey& key);

// Absent for an item without a secret, and for what others filed under the schema in another shape.
[[nodiscard]] std::optional<StoredKey> keyOfItem(SecretItem* item);

}  // namespace kvl::security
