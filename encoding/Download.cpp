// Answers that go into a file.
#include "encoding/FetchDelivery.h"
#include "encoding/PartialFile.h"
#include "platform/core/ProcessExit.h"

#include <local/KVLEncodingDownload.h>
#include <local/platform/Log.h>
#include <local/platform/Mutex.h>

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

namespace {

using EmptyAnswer = kvl::RequestOptions::EmptyAnswer;

// Bytes that wait for the disk when the service is held back, and when it may go on.
constexpr std::size_t kMostWaiting = std::size_t{4} << 20;
constexpr std::size_t kFewWaiting = std::size_t{1} << 20;
constexpr std::size_t kMostOfARefusal = std::size_t{64} << 10;

// The task, held back while too much waits. Thread-safe; the task may be of the host's own class,
// so it is called without the lock, and one call at a time.
class Flow {
 public:
  void setTask(std::shared_ptr<kvl::DataTask> task) {
    bool isCancelled = false;
    {
      const kvl::MutexLock lock(mutex_);
      if (isOver_) return;
      task_ = task;
      isCancelled = isCancelled_;
    }
    if (isCancelled) task->cancel();
    apply();
  }
  void add(std::size_t bytes) {
    {
      const kvl::MutexLock lock(mutex_);
      waiting_ += bytes;
      if (waiting_ > kMostWaiting) isToBeHeld_ = true;
    }
    apply();
  }
  void remove(std::size_t bytes) {
    {
      const kvl::MutexLock lock(mutex_);
      waiting_ -= bytes;
      if (waiting_ < kFewWaiting) isToBeHeld_ = false;
    }
    apply();
  }
  // Now, or once the task is there.
  void cancel() {
    std::shared_ptr<kvl::DataTask> task;
    {
      const kvl::MutexLock lock(mutex_);
      isCancelled_ = true;
      task = task_;
    }
    if (task) task->cancel();
  }
  // The task has ended, and is let go.
  void end() {
    std::shared_ptr<kvl::DataTask> task;
    const kvl::MutexLock lock(mutex_);
    isOver_ = true;
    task.swap(task_);
  }

 private:
  void apply() {
    kvl::MutexLock lock(mutex_);
    while (!isApplying_ && task_ && isHeld_ != isToBeHeld_) {
      const auto task = task_;
      const bool holds = isHeld_ = isToBeHeld_;
      isApplying_ = true;
      lock.unlock();
      holds ? task->suspendDelivery() : task->resumeDelivery();
      lock.lock();
      isApplying_ = false;
    }
  }

  kvl::Mutex mutex_;
  std::shared_ptr<kvl::DataTask> task_ KVL_GUARDED_BY(mutex_);
  std::size_t waiting_ KVL_GUARDED_BY(mutex_) = 0;
  bool isToBeHeld_ KVL_GUARDED_BY(mutex_) = false;
  bool isHeld_ KVL_GUARDED_BY(mutex_) = false;
  bool isApplying_ KVL_GUARDED_BY(mutex_) = false;
  bool isCancelled_ KVL_GUARDED_BY(mutex_) = false;
  bool isOver_ KVL_GUARDED_BY(mutex_) = false;
};

struct Content {
  std::optional<std::filesystem::path> file;
  std::optional<kvl::Data> body;
};
using ContentDelivery = kvl::encoding::Delivery<Content>;

ContentDelivery::Handler handlerOf(KVLEncoding::DownloadHandler handler) {
  if (!handler) {
    return [](const Content&, const auto&, const std::optional<kvl::Error>& error) {
      if (error)
        kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "download error: %@", *error);
    };
  }
  return [handler = std::move(handler)](Content content, kvl::URLResponseRef response,
                                        std::optional<kvl::Error> error) {
    handler(
        {std::move(content.file), std::move(response), std::move(content.body), std::move(error)});
  };
}

// A part of the document, as a host's own `Range` field brings it, would pass for the whole.
bool isSuccess(const kvl::URLResponseRef& response) {
  constexpr int kPartialContent = 206;
  const auto status = response ? response->httpStatusCode : std::nullopt;
  return !status || (*status >= 200 && *status < 300 && *status != kPartialContent);
}

// One download. The task's receiver keeps it; what it does with the file happens on a queue of its
// own, where the disk may be slow.
class Download : public std::enable_shared_from_this<Download> {
 public:
  Download(std::filesystem::path target, ContentDelivery delivery,
           const KVLEncoding::DownloadOptions& options)
      : emptyAnswer_(options.emptyAnswer),
        replaces_(options.replaces),
        delivery_(std::move(delivery)),
        file_(std::move(target)) {}

  [[nodiscard]] kvl::BodyReceiver receiver() {
    const auto self = shared_from_this();
    return {
        .head =
            [self](const kvl::URLResponseRef& head) {
              self->post([self, head] { self->begin(head); });
            },
        .piece =
            [self](const kvl::Data& piece) {
              self->flow_.add(piece.size());
              self->post([self, piece] {
                self->take(piece);
                self->flow_.remove(piece.size());
              });
            },
        .end =
            [self](const kvl::URLResponseRef& response, const std::optional<kvl::Error>& error) {
              self->flow_.end();
              self->post([self, response, error] { self->finish(response, error); });
            }};
  }
  void setTask(std::shared_ptr<kvl::DataTask> task) { flow_.setTask(std::move(task)); }

 private:
  template <class Block>
  void post(Block block) {
    queue_->async([block = std::move(block)] {
      const kvl::core::ThreadWork work;
      block();
    });
  }

  void begin(const kvl::URLResponseRef& head) {
    hasBegun_ = true;
    isRefused_ = !isSuccess(head);
    if (!isRefused_) breakOff(file_.open());
  }

  void take(const kvl::Data& piece) {
    size_ += piece.size();
    if (isRefused_) {
      refusal_ +=
          piece.text().substr(0, kMostOfARefusal - std::min(kMostOfARefusal, refusal_.size()));
    } else if (!failure_) {
      breakOff(file_.write(piece));
    }
  }

  void breakOff(std::optional<kvl::Error> failure) {
    if (!failure) return;
    failure_ = std::move(failure);
    flow_.cancel();
  }

  // From here on `cancel` comes too late, so that there is never a file and no success.
  void finish(const kvl::URLResponseRef& response, std::optional<kvl::Error> error) {
    const bool isCancelled = !delivery_.turn()->begin();
    Content content;
    if (isCancelled) {
      error = kvl::urlloading::cancelledError(response);
    } else if (failure_) {
      error = std::move(failure_);
    } else if (!error) {
      error = conclude(response, content);
    }
    if (!content.file) file_.remove();
    std::move(delivery_).onMainQueue(std::move(content), response, std::move(error));
  }

  [[nodiscard]] std::optional<kvl::Error> conclude(const kvl::URLResponseRef& response,
                                                   Content& content) {
    if (!hasBegun_) begin(response);
    if (failure_) return std::move(failure_);
    if (isRefused_) {
      content.body = kvl::Data::adoptingText(std::move(refusal_));
      return std::nullopt;
    }
    if (size_ == 0 && emptyAnswer_ == EmptyAnswer::error) return kvl::encoding::emptyAnswerError();
    if (size_ == 0 && emptyAnswer_ == EmptyAnswer::none) return std::nullopt;
    auto error = file_.moveToTarget(replaces_);
    if (!error) content.file = file_.target();
    return error;
  }

  const std::shared_ptr<kvl::DispatchQueue> queue_ =
      kvl::DispatchQueue::serial("korvale.local.download");
  const EmptyAnswer emptyAnswer_;
  const bool replaces_;
  Flow flow_;

  // On the queue.
  ContentDelivery delivery_;
  kvl::encoding::PartialFile file_;
  bool hasBegun_ = false;
  bool isRefused_ = false;
  std::uint64_t size_ = 0;
  std::string refusal_;
  std::optional<kvl::Error> failure_;
};

}  // namespace

kvl::Exchange KVLEncoding::downloadFromSession(KVLSession& session,
                                               const RelativePath& relativePath,
                                               const std::filesystem::path& file,
                                               DownloadHandler completionHandler,
                                               const DownloadOptions& options) {
  kvl::URLRequest request(relativePath.text());
  kvl::urlloading::apply(options, request);
  std::error_code code;
  const auto target = std::filesystem::absolute(file, code);
  ContentDelivery delivery(handlerOf(std::move(completionHandler)), options);
  const auto state = std::make_shared<kvl::urlloading::ExchangeState>(delivery.turn());
  const auto download =
      std::make_shared<Download>(code ? file : target, std::move(delivery), options);
  if (auto task = session.requestPieces(request, download->receiver())) {
    download->setTask(task);
    state->setTask(std::move(task));
  }
  return kvl::Exchange(state);
}
