// The session object that a host holds, its tasks, and the way from the I/O thread to the delegate.
#pragma once

#include "platform/urlloading/BodyFraming.h"
#include "platform/urlloading/DeliveryWindow.h"
#include "platform/urlloading/ProgressMeter.h"
#include "platform/urlloading/RequestCheck.h"
#include "platform/urlloading/TLSConnection.h"

#include <local/platform/Atomic.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace kvl::urlloading {

class Engine;

// Kept alive by its tasks, so that it is there in every delegate call.
class URLSessionObject final : public URLSession,
                               public std::enable_shared_from_this<URLSessionObject> {
 public:
  // Challenges are put to the delegate on `challengeQueue`: null for the one of all other calls.
  URLSessionObject(URLSessionConfiguration configuration,
                   std::weak_ptr<URLSessionDelegate> delegate,
                   std::shared_ptr<DispatchQueue> challengeQueue = nullptr);
  ~URLSessionObject() override;

  std::shared_ptr<DataTask> dataTask(const URLRequest& request) override;
  std::shared_ptr<DataTask> dataTask(const URLRequest& request,
                                     DataTaskHandler completionHandler) override;
  std::shared_ptr<DataTask> streamingTask(const URLRequest& request,
                                          BodyReceiver receiver) override;
  void finishTasksAndInvalidate() override;
  void invalidateAndCancel() override;
  const URLSessionConfiguration& configuration() const noexcept override { return configuration_; }
  bool isInvalidated() const override;

  [[nodiscard]] Engine& engine() noexcept { return *engine_; }
  [[nodiscard]] DispatchQueue& queue() noexcept { return *queue_; }
  [[nodiscard]] DispatchQueue& challengeQueue() noexcept { return *challengeQueue_; }
  [[nodiscard]] std::shared_ptr<URLSessionDelegate> delegate() const { return delegate_.lock(); }

 private:
  const URLSessionConfiguration configuration_;
  const std::weak_ptr<URLSessionDelegate> delegate_;
  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<DispatchQueue> challengeQueue_;
  const std::shared_ptr<Engine> engine_;
};

// How a task ended.
struct TaskOutcome {
  std::optional<Data> body;
  URLResponseRef response;
  std::optional<Error> error;
};

// The task that a host holds. Thread-safe: the host calls the `DataTask` part from any thread, the
// transfer calls the rest from the I/O thread, and both meet on the session object's queue. Holds
// its session object until its completion has been delivered.
class DataTaskObject final : public DataTask, public std::enable_shared_from_this<DataTaskObject> {
 public:
  // A null handler: the body and the completion go to the delegate.
  DataTaskObject(std::shared_ptr<URLSessionObject> session, RequestRef request,
                 DataTaskHandler handler);
  DataTaskObject(std::shared_ptr<URLSessionObject> session, RequestRef request,
                 BodyReceiver receiver);

  std::uint64_t taskIdentifier() const noexcept override { return identifier_; }
  State state() const noexcept override;
  const URLRequest& originalRequest() const noexcept override { return *request_; }
  URLResponseRef response() const override { return response_.get(); }
  void resume() override;
  void cancel() override;
  void setPrefersIncrementalDelivery(bool prefers) override { prefersIncremental_ = prefers; }
  bool prefersIncrementalDelivery() const noexcept override { return prefersIncremental_; }
  TransferProgress progress() const override { return meter_.present(); }
  Observation observeProgress(std::function<void(const TransferProgress&)> handler) override;
  void suspendDelivery() override;
  void resumeDelivery() override;

  // Before the task is resumed.
  void setFraming(std::unique_ptr<BodyFraming> framing);

  // For the I/O thread.
  // The framing of the task's body; the first call takes it.
  [[nodiscard]] std::unique_ptr<BodyFraming> takeFraming();
  [[nodiscard]] bool isCancelled() const { return state() == State::canceling; }
  // Whether the session object takes no new tasks any more.
  [[nodiscard]] bool isClosing() const;
  [[nodiscard]] bool wantsBodyInOnePiece() const noexcept { return goes_ == Goes::toHandler; }
  // The head of the answer.
  void setResponse(URLResponseRef response);
  // Whether more may be collected for the delegate now, beside `collected` bytes.
  [[nodiscard]] bool takesDelivery(std::size_t collected) { return window_.isOpen(collected); }
  // Whether somebody has suspended the delivery, so that no silence of the server counts.
  [[nodiscard]] bool isDeliverySuspended() const {
    return !wantsBodyInOnePiece() && window_.isSuspended();
  }
  // After a resumption, once the time of silence has begun anew.
  void noteDeliveryResumed() { window_.noteResumed(); }
  // From any thread: the body that is being sent goes on.
  void feedBody();
  // Hands over a piece of the body.
  void deliver(Data data);
  [[nodiscard]] ProgressMeter& meter() noexcept { return meter_; }
  // Ends the task; the first call counts.
  void conclude(TaskOutcome outcome);
  // Waits for the delegate's answer.
  [[nodiscard]] ChallengeAnswer ask(ProtectionSpace space,
                                    std::shared_ptr<security::ServerTrust> trust,
                                    SteadyTime deadline);
  void abortChallenge();

 private:
  [[nodiscard]] std::optional<Error> start();
  [[nodiscard]] std::shared_ptr<URLSessionObject> session() const;
  [[nodiscard]] bool openGate(const std::shared_ptr<ChallengeGate>& gate);
  // A block that runs `work` with this task and its session object.
  template <class Work>
  [[nodiscard]] DispatchQueue::Block blockOf(std::shared_ptr<URLSessionObject> held, Work work);
  // For the I/O thread: runs `work` on the session object's queue, after this pass.
  template <class Work>
  void post(Work work);
  void handOver(URLSessionObject& session, const Data& data);
  // As `conclude`, for any thread, for a task of which the I/O thread knows nothing.
  void complete(TaskOutcome outcome);
  void finishAfter(DispatchQueue& progress, TaskOutcome outcome);
  void finishOnQueue(TaskOutcome outcome);
  void finish(TaskOutcome outcome);

  const std::uint64_t identifier_;
  const RequestRef request_;
  // Where body and completion go.
  enum class Goes : unsigned char { toHandler, toDelegate, toReceiver };
  const Goes goes_;
  DeliveryWindow window_;
  ProgressMeter meter_;
  BodyReceiver receiver_;  // constant until the queue calls and empties its `end`
  Atomic<URLResponseRef> response_;
  std::atomic<bool> prefersIncremental_ = true;

  mutable Mutex mutex_;
  State state_ KVL_GUARDED_BY(mutex_) = State::suspended;
  std::shared_ptr<URLSessionObject> session_ KVL_GUARDED_BY(mutex_);
  DataTaskHandler handler_ KVL_GUARDED_BY(mutex_);
  std::unique_ptr<BodyFraming> framing_ KVL_GUARDED_BY(mutex_);
  std::shared_ptr<ChallengeGate> gate_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::urlloading
