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

// The attributes (a{ss}) that all items of this framework have, or those of `tag` and `keyClass`
// when given.
[[nodiscard]] GLibPtr<GVariant> matchingAttributes(std::optional<std::string_view> tag,
                                                   std::optional<Key::Class> keyClass);

// What an item is made of (a{sv}): its label and all its attributes, among them, if given, the mark
// of the process that makes it.
[[nodiscard]] GLibPtr<GVariant> itemProperties(const StoredKey& key,
                                               const std::optional<std::string>& maker);

// The key's encoding; the copy is wiped with the last reference.
[[nodiscard]] ValuePtr itemValue(const StoredKey& key);

// From an item's properties (a{sv}) and secret. Absent for what others filed among this framework's
// items in another shape.
[[nodiscard]] std::optional<StoredKey> keyOfItem(GVariant* properties, SecretValue* value);

// The mark among an item's attributes (a{ss}), empty when there is none.
[[nodiscard]] std::string makerOfItem(GVariant* attributes);

}  // namespace kvl::security
