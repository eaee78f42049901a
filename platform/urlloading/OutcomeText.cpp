#include <local/platform/Log.h>
#include <local/platform/Text.h>
#include <local/platform/Translation.h>
#include <local/platform/URLRequest.h>

#include <string>

namespace kvl {
namespace {

constexpr int kFirstFailure = 300;

std::string answerText(const URLResponse& response, int status) {
  const std::string answer =
      std::to_string(status) + " " + std::string(localizedStringForStatusCode(status));
  return kvl::format(translated("%@ from %@"), answer, response.url.path());
}

}  // namespace

std::string outcomeText(const URLResponseRef& response, const std::optional<Error>& error) {
  const int status = response ? response->httpStatusCode.value_or(0) : 0;
  if (error && status < kFirstFailure) return errorText(*error);
  return status == 0 ? translated("No answer") : answerText(*response, status);
}

}  // namespace kvl
