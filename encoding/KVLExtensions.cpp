#include <local/KVLExtensions.h>

namespace KVLExtensions {

std::int64_t statusCode(const kvl::URLResponse& response) noexcept {
  return response.httpStatusCode.value_or(-1);
}

bool requiresAuthentication(const kvl::URLResponse& response) noexcept {
  const auto status = statusCode(response);
  return status == 401 || status == 403;
}

}  // namespace KVLExtensions
