// The session object that a host holds.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/URLSession.h>

#include <memory>

namespace kvl::urlloading {

class Engine;

// Kept alive by its tasks, so that it is there in every delegate call.
class URLSessionObject final : public URLSession,
                               public std::enable_shared_from_this<URLSessionObject> {
 public:
  URLSessionObject(URLSessionConfiguration configuration,
                   std::weak_ptr<URLSessionDelegate> delegate);
  ~URLSessionObject() override;

  std::shared_ptr<DataTask> dataTask(const URLRequest& request) override;
  std::shared_ptr<DataTask> dataTask(const URLRequest& request,
                                     DataTaskHandler completionHandler) override;
  void finishTasksAndInvalidate() override;
  void invalidateAndCancel() override;
  const URLSessionConfiguration& configuration() const noexcept override { return configuration_; }

  [[nodiscard]] Engine& engine() noexcept { return *engine_; }
  [[nodiscard]] DispatchQueue& queue() noexcept { return *queue_; }
  [[nodiscard]] std::shared_ptr<URLSessionDelegate> delegate() const { return delegate_.lock(); }

 private:
  const URLSessionConfiguration configuration_;
  const std::weak_ptr<URLSessionDelegate> delegate_;
  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<Engine> engine_;
};

}  // namespace kvl::urlloading
