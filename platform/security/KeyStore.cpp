// What all key stores accept, and the store of the process.
#include "platform/security/KeyStore.h"

#include "platform/core/NoDestructor.h"

#include <glib.h>

namespace kvl::security {
namespace {

// NUL counts as no UTF-8 here: g_utf8_validate refuses it when it is told the length.
bool isUTF8(std::string_view text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

}  // namespace

Status checkStorable(const StoredKey& key) {
  if (key.tag.empty() || key.encoded.empty()) return errSecParam;
  for (const std::string& text : {key.tag, key.label, key.comment, key.description}) {
    if (!isUTF8(text)) return errSecParam;
    if (text.size() > kMaximumTextSize) return errSecDataTooLarge;
  }
  if (key.encoded.size() > kMaximumKeySize) return errSecDataTooLarge;
  return kSuccess;
}

bool isUsableTag(std::string_view tag) {
  return !tag.empty() && tag.size() <= kMaximumTextSize && isUTF8(tag);
}

std::shared_ptr<KeyStore> defaultKeyStore() {
  // Never destroyed: a host's threads may delete their keys while the process exits.
  static const NoDestructor<std::shared_ptr<KeyStore>> store(makeDefaultKeyStore());
  return *store;
}

}  // namespace kvl::security
