#include <local/platform/Text.h>
#include <local/platform/URLRequest.h>

#include <string>

namespace kvl {
namespace {

constexpr int kFirstFailure = 300;

std::string answerText(const URLResponse& response, int status) {
  return std::to_string(status) + " " + std::string(localizedStringForStatusCode(status)) +
         " from " + std::string(response.url.path());
}

}  // namespace

std::string outcomeText(const URLResponseRef& response, const std::optional<Error>& error) {
  const int status = response ? response->httpStatusCode.value_or(0) : 0;
  if (error && status < kFirstFailure) return errorText(*error);
  return status == 0 ? "No answer" : answerText(*response, status);
}

}  // namespace kvl
