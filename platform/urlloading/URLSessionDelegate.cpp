#include <local/platform/URLSession.h>

namespace kvl {

URLSession::~URLSession() = default;
DataTask::~DataTask() = default;
URLSessionDelegate::~URLSessionDelegate() = default;

// NOLINTBEGIN(performance-unnecessary-value-param): whoever overrides it may keep the handler
void URLSessionDelegate::didReceiveChallenge(URLSession&, const Challenge&,
                                             ChallengeHandler completionHandler) {
  completionHandler(ChallengeDisposition::performDefaultHandling, nullptr);
}
// NOLINTEND(performance-unnecessary-value-param)

void URLSessionDelegate::didReceiveData(URLSession&, const std::shared_ptr<DataTask>&,
                                        const Data&) {}

void URLSessionDelegate::didCompleteWithError(URLSession&, const std::shared_ptr<DataTask>&,
                                              const std::optional<Error>&) {}

}  // namespace kvl
