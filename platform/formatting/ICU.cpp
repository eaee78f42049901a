#include "platform/formatting/ICU.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace kvl::formatting {
namespace {

// POSIX names a script after the country, where ICU would take it for a variant.
constexpr std::pair<std::string_view, std::string_view> kScripts[] = {
    {"@latin", "_Latn"}, {"@cyrillic", "_Cyrl"}, {"@devanagari", "_Deva"}};

std::string withScriptInPlace(std::string name) {
  for (const auto& [modifier, script] : kScripts) {
    if (!name.ends_with(modifier)) continue;
    name.resize(name.size() - modifier.size());
    return name.insert(std::min(name.find_first_of("_."), name.size()), script);
  }
  return name;
}

}  // namespace

icu::Locale icuLocale(const std::string& name) {
  auto locale = icu::Locale::createCanonical(withScriptInPlace(name).c_str());
  return locale.isBogus() ? icu::Locale::getRoot() : locale;
}

std::string utf8(const icu::UnicodeString& text) {
  std::string result;
  return text.toUTF8String(result);
}

}  // namespace kvl::formatting
