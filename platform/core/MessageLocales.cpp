#include "platform/core/MessageLocales.h"

#include <local/platform/Translation.h>

#include <atomic>
#include <cstdlib>

namespace kvl {
namespace core {
namespace {

// What the host has set, now and before. None of them goes, so that they are read without a lock,
// which a child of fork(2) could find held.
struct HostsLocales {
  std::string names;
  const HostsLocales* older;
};
std::atomic<const HostsLocales*> newest = nullptr;
std::atomic<const HostsLocales*> current = nullptr;

const HostsLocales* known(std::string_view names) {
  for (const auto* entry = newest.load(); entry != nullptr; entry = entry->older)
    if (entry->names == names) return entry;
  return nullptr;
}

const HostsLocales* added(std::string_view names) {
  auto* const entry = new HostsLocales{std::string(names), newest};
  while (!newest.compare_exchange_weak(entry->older, entry)) {
  }
  return entry;
}

}  // namespace

std::string localeFrom(std::initializer_list<const char*> variables) {
  for (const char* variable : variables) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return withoutCLocale(value);
  }
  return kCLocale;
}

std::string userMessageLocales() {
  if (const auto* hosts = current.load(); hosts != nullptr && !hosts->names.empty())
    return hosts->names;
  auto locale = localeFrom({"LC_ALL", "LC_MESSAGES", "LANG"});
  const char* languages = std::getenv("LANGUAGE");
  if (languages == nullptr || *languages == '\0' || locale == kCLocale) return locale;
  return std::string(languages) + ':' + locale;
}

}  // namespace core

void setMessageLocales(std::string_view locales) {
  const auto* entry = core::known(locales);
  core::current = entry != nullptr ? entry : core::added(locales);
}

}  // namespace kvl
