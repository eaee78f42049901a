// The task that a host holds: its state, and the way from the I/O thread to the delegate.
#pragma once

#include "platform/urlloading/ChallengeGate.h"
#include "platform/urlloading/DeliveryWindow.h"

#include <local/platform/Atomic.h>
#include <local/platform/URLSession.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

namespace kvl::urlloading {

class URLSessionObject;

// How a task ended.
struct TaskOutcome {
  std::optional<Data> body;
  URLResponseRef response;
  std::optional<Error> error;
};

// Thread-safe. Holds its session object until its completion has been delivered.
class DataTaskObject final : public DataTask, public std::enable_shared_from_this<DataTaskObject> {
 public:
  // A null handler: the body and the completion go to the delegate.
  DataTaskObject(std::shared_ptr<URLSessionObject> session, URLRequest request,
                 DataTaskHandler handler);

  std::uint64_t taskIdentifier() const noexcept override { return identifier_; }
  State state() const noexcept override;
  const URLRequest& originalRequest() const noexcept override { return request_; }
  URLResponseRef response() const override { return response_.get(); }
  void resume() override;
  void cancel() override;
  void setPrefersIncrementalDelivery(bool prefers) override { prefersIncremental_ = prefers; }
  bool prefersIncrementalDelivery() const noexcept override { return prefersIncremental_; }

  // For the I/O thread.
  [[nodiscard]] bool isCancelled() const { return state() == State::canceling; }
  [[nodiscard]] bool wantsBodyInOnePiece() const noexcept { return hasHandler_; }
  void setResponse(URLResponseRef response) { response_.set(std::move(response)); }
  // Whether more may be collected for the delegate now.
  [[nodiscard]] bool takesDelivery() { return window_.isOpen(); }
  // Hands over a piece of the body.
  void deliver(Data data);
  // Ends the task; the first call counts.
  void complete(TaskOutcome outcome);
  // Waits for the delegate's answer.
  [[nodiscard]] ChallengeAnswer ask(ProtectionSpace space,
                                    std::shared_ptr<security::ServerTrust> trust,
                                    SteadyTime deadline);
  void abortChallenge();

 private:
  [[nodiscard]] std::optional<Error> start();
  [[nodiscard]] std::shared_ptr<URLSessionObject> session() const;
  [[nodiscard]] bool openGate(const std::shared_ptr<ChallengeGate>& gate);
  void handOver(URLSessionObject& session, const Data& data);
  void finish(TaskOutcome outcome);

  const std::uint64_t identifier_;
  const URLRequest request_;
  const bool hasHandler_;
  DeliveryWindow window_;
  Atomic<URLResponseRef> response_;
  std::atomic<bool> prefersIncremental_ = true;

  mutable std::mutex mutex_;  // guards what follows
  State state_ = State::suspended;
  std::shared_ptr<URLSessionObject> session_;
  DataTaskHandler handler_;
  std::shared_ptr<ChallengeGate> gate_;
};

}  // namespace kvl::urlloading
