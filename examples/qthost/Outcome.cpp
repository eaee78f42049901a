#include "examples/qthost/Outcome.h"

#include <local/qt/Conversions.h>

namespace qthost {

Outcome outcomeOf(const kvl::URLResponseRef& response, const std::optional<kvl::Error>& error) {
  const int status = response ? response->httpStatusCode.value_or(0) : 0;
  const bool isRefused = status >= 300;
  if (error && !isRefused) return {false, kvl::qt::qString(error->localizedDescription())};
  if (status == 0) return {true, {}};
  const QString reason = kvl::qt::qString(kvl::localizedStringForStatusCode(status));
  return {!isRefused, QStringLiteral("%1 %2").arg(QString::number(status), reason)};
}

}  // namespace qthost
