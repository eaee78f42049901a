#include "encoding/FailedStatus.h"

#include <local/KVLExtensions.h>
#include <local/platform/Log.h>

void kvl::encoding::logFailedStatus(const URLResponse& response) {
  constexpr std::int64_t kLowestLogged = 300;
  const auto status = KVLExtensions::statusCode(response);
  if (status < kLowestLogged) return;
  log("%@: status: %ld / %@", response.url.absoluteString(), status,
      localizedStringForStatusCode(status));
}
