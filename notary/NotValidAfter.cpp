#include "notary/NotValidAfter.h"

#include "platform/security/Operations.h"

#include <local/platform/Log.h>

namespace kvl::notary {

std::optional<Date> notValidAfterFromValues(const std::optional<Dictionary>& values) {
  if (!values) return std::nullopt;
  const auto entry = (*values)[security::kSecOIDX509V1ValidityNotAfter].dictionary();
  const Value* value = entry ? entry->find(security::kSecPropertyKeyValue) : nullptr;
  if (value == nullptr) return std::nullopt;
  if (const auto date = value->date()) return date;
  if (const auto seconds = value->real()) return Date(*seconds);
  log("unknown not-after: %@", *values);
  return std::nullopt;
}

}  // namespace kvl::notary
