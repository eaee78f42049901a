#include "platform/formatting/Texts.h"
#include "platform/formatting/UserLocale.h"

#include <local/platform/UpdateCount.h>

#include <utility>

namespace kvl {

std::string localizedUpdateCount(std::int64_t count, const std::string& locale) {
  const auto& locales = locale.empty() ? formatting::userMessageLocales() : locale;
  auto* const all = formatting::texts();
  auto text = all == nullptr ? std::nullopt : all->updateCount(count, locales);
  if (text) return *std::move(text);
  return std::to_string(count) + (count == 1 ? " update" : " updates");
}

}  // namespace kvl
