#include "platform/urlloading/URLSessionObject.h"

#include "platform/urlloading/DataTaskObject.h"
#include "platform/urlloading/Engine.h"

#include <utility>

namespace kvl {

std::shared_ptr<URLSession> URLSession::create(URLSessionConfiguration configuration,
                                               std::weak_ptr<URLSessionDelegate> delegate) {
  return std::make_shared<urlloading::URLSessionObject>(std::move(configuration),
                                                        std::move(delegate));
}

namespace urlloading {
namespace {

constexpr const char* kQueueLabel = "korvale.local.urlsession";

}  // namespace

URLSessionObject::URLSessionObject(URLSessionConfiguration configuration,
                                   std::weak_ptr<URLSessionDelegate> delegate)
    : configuration_(std::move(configuration)),
      delegate_(std::move(delegate)),
      queue_(DispatchQueue::serial(kQueueLabel)),
      engine_(std::make_shared<Engine>(configuration_)) {}

URLSessionObject::~URLSessionObject() {
  engine_->invalidate();
}

std::shared_ptr<DataTask> URLSessionObject::dataTask(const URLRequest& request) {
  return dataTask(request, nullptr);
}

std::shared_ptr<DataTask> URLSessionObject::dataTask(const URLRequest& request,
                                                     DataTaskHandler completionHandler) {
  return std::make_shared<DataTaskObject>(shared_from_this(), request,
                                          std::move(completionHandler));
}

void URLSessionObject::finishTasksAndInvalidate() {
  engine_->invalidate();
}

void URLSessionObject::invalidateAndCancel() {
  engine_->invalidate();
  for (const auto& task : engine_->runningTasks()) task->cancel();
}

}  // namespace urlloading
}  // namespace kvl
