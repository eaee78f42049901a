// What session objects, tasks and delegates do that a host's own class does not override.
#include <local/platform/URLSession.h>

#include <utility>

namespace kvl {

DataTask::~DataTask() = default;
URLSession::~URLSession() = default;
URLSessionDelegate::~URLSessionDelegate() = default;

TransferProgress DataTask::progress() const {
  return {};
}

// NOLINTBEGIN(performance-unnecessary-value-param): whoever overrides it may keep the handler
Observation DataTask::observeProgress(std::function<void(const TransferProgress&)>) {
  return {};
}

void URLSessionDelegate::didReceiveChallenge(URLSession&, const Challenge&,
                                             ChallengeHandler completionHandler) {
  completionHandler(ChallengeDisposition::performDefaultHandling, nullptr);
}
// NOLINTEND(performance-unnecessary-value-param)

void DataTask::suspendDelivery() {}
void DataTask::resumeDelivery() {}

bool URLSession::isInvalidated() const {
  return false;
}

std::shared_ptr<DataTask> URLSession::streamingTask(const URLRequest& request,
                                                    BodyReceiver receiver) {
  return dataTask(request, [receiver = std::move(receiver)](const std::optional<Data>& body,
                                                            const URLResponseRef& response,
                                                            const std::optional<Error>& error) {
    if (response && receiver.head) receiver.head(response);
    if (body && !body->empty() && receiver.piece) receiver.piece(*body);
    if (receiver.end) receiver.end(response, error);
  });
}

void URLSessionDelegate::didReceiveData(URLSession&, const std::shared_ptr<DataTask>&,
                                        const Data&) {}

void URLSessionDelegate::didCompleteWithError(URLSession&, const std::shared_ptr<DataTask>&,
                                              const std::optional<Error>&) {}

}  // namespace kvl
