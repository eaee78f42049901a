// Request dispatch.
#include "session/MonitorSection.h"
#include "session/SessionImplementation.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>

#include <optional>
#include <utility>

namespace {

kvl::Error notEstablished() {
  return {kvl::NSURLErrorDomain,
          kvl::NSURLErrorUnknown,
          {{kvl::NSLocalizedDescriptionKey, "Notarised session is not established."}}};
}

// A request whose text is no URL stays as it is, and fails when it is started.
kvl::URLRequest resolved(kvl::URLRequest request, const std::optional<kvl::URL>& base) {
  if (request.url() && base) request.setURL(request.url()->resolvedAgainst(*base));
  return request;
}

}  // namespace

std::shared_ptr<kvl::DataTask> KVLSession::request(const kvl::URLRequest& request,
                                                   kvl::DataTaskHandler completionHandler) {
  auto& self = *implementation_;
  std::optional<kvl::session::MonitorSection> section(std::in_place, self.signature);
  const auto signature = self.signature.get();
  const auto session = self.session.get();
  if (!signature || !session) {
    // Without a signature the section excludes nobody; the handler must not meet a lock either way.
    section.reset();
    if (completionHandler) completionHandler(std::nullopt, nullptr, notEstablished());
    return nullptr;
  }
  const auto copy = resolved(request, signature->baseURL());
  std::shared_ptr<kvl::DataTask> task;
  if (completionHandler) {
    task = session->dataTask(copy, [owner = shared_from_this(), url = std::string(copy.urlText()),
                                    handler = std::move(completionHandler)](
                                       std::optional<kvl::Data> data, kvl::URLResponseRef response,
                                       std::optional<kvl::Error> error) {
      owner->implementation_->completeRequest(owner, url, error);
      handler(std::move(data), std::move(response), std::move(error));
    });
  } else {
    task = session->dataTask(copy);
  }
  task->resume();
  return task;
}

void KVLSession::Implementation::completeRequest(const std::shared_ptr<KVLSession>& owner,
                                                 const std::string& url,
                                                 const std::optional<kvl::Error>& error) {
  if (!error) return;
  kvl::log("error from request: %@", url);
  if (!isNotarisationError(error)) return;
  kvl::log("notarisation error from request; enqueuing reconnection");
  reconnect(owner);
}
