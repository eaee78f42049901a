#include "platform/core/MessageLocales.h"

#include "platform/core/NoDestructor.h"

#include <local/platform/Atomic.h>
#include <local/platform/Translation.h>

#include <cstdlib>

namespace kvl {
namespace core {
namespace {

Atomic<std::string>& hostsLocales() {
  static NoDestructor<Atomic<std::string>> locales;
  return *locales;
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
  if (auto locales = hostsLocales().get(); !locales.empty()) return locales;
  auto locale = localeFrom({"LC_ALL", "LC_MESSAGES", "LANG"});
  const char* languages = std::getenv("LANGUAGE");
  if (languages == nullptr || *languages == '\0' || locale == kCLocale) return locale;
  return std::string(languages) + ':' + locale;
}

}  // namespace core

void setMessageLocales(std::string_view locales) {
  core::hostsLocales().set(std::string(locales));
}

}  // namespace kvl
