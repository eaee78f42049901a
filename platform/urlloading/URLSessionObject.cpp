#include "platform/urlloading/URLSessionObject.h"

#include "platform/core/ProcessExit.h"
#include "platform/dispatch/Lanes.h"
#include "platform/urlloading/Engine.h"
#include "platform/urlloading/FrameworkSession.h"
#include "platform/urlloading/LoadingErrors.h"

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

std::uint64_t nextIdentifier() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

}  // namespace

std::shared_ptr<URLSession> createForFramework(URLSessionConfiguration configuration,
                                               std::weak_ptr<URLSessionDelegate> delegate) {
  return std::make_shared<URLSessionObject>(std::move(configuration), std::move(delegate),
                                            dispatch::laneQueue(kQueueLabel));
}

URLSessionObject::URLSessionObject(URLSessionConfiguration configuration,
                                   std::weak_ptr<URLSessionDelegate> delegate,
                                   std::shared_ptr<DispatchQueue> challengeQueue)
    : configuration_(std::move(configuration)),
      delegate_(std::move(delegate)),
      queue_(DispatchQueue::serial(kQueueLabel)),
      challengeQueue_(challengeQueue ? std::move(challengeQueue) : std::shared_ptr(queue_)),
      engine_(std::make_shared<Engine>(configuration_, queue_)) {}

URLSessionObject::~URLSessionObject() {
  engine_->invalidate();
}

std::shared_ptr<DataTask> URLSessionObject::dataTask(const URLRequest& request) {
  return dataTask(request, nullptr);
}

std::shared_ptr<DataTask> URLSessionObject::dataTask(const URLRequest& request,
                                                     DataTaskHandler completionHandler) {
  return std::make_shared<DataTaskObject>(shared_from_this(),
                                          std::make_shared<const URLRequest>(request),
                                          std::move(completionHandler));
}

std::shared_ptr<DataTask> URLSessionObject::streamingTask(const URLRequest& request,
                                                          BodyReceiver receiver) {
  return std::make_shared<DataTaskObject>(
      shared_from_this(), std::make_shared<const URLRequest>(request), std::move(receiver));
}

void URLSessionObject::finishTasksAndInvalidate() {
  engine_->invalidate();
}

void URLSessionObject::invalidateAndCancel() {
  engine_->invalidate();
  for (const auto& task : engine_->runningTasks()) task->cancel();
}

bool URLSessionObject::isInvalidated() const {
  return engine_->isInvalidated();
}

DataTaskObject::DataTaskObject(std::shared_ptr<URLSessionObject> session, RequestRef request,
                               DataTaskHandler handler)
    : identifier_(nextIdentifier()),
      request_(std::move(request)),
      goes_(handler ? Goes::toHandler : Goes::toDelegate),
      window_(session->configuration().deliveryBufferSize),
      session_(std::move(session)),
      handler_(std::move(handler)) {}

DataTaskObject::DataTaskObject(std::shared_ptr<URLSessionObject> session, RequestRef request,
                               BodyReceiver receiver)
    : identifier_(nextIdentifier()),
      request_(std::move(request)),
      goes_(Goes::toReceiver),
      window_(session->configuration().deliveryBufferSize),
      receiver_(std::move(receiver)),
      session_(std::move(session)) {}

DataTask::State DataTaskObject::state() const noexcept {
  const MutexLock lock(mutex_);
  return state_;
}

std::shared_ptr<URLSessionObject> DataTaskObject::session() const {
  const MutexLock lock(mutex_);
  return session_;
}

bool DataTaskObject::isClosing() const {
  const auto held = session();
  return held && held->engine().isInvalidated();
}

void DataTaskObject::setFraming(std::unique_ptr<BodyFraming> framing) {
  const MutexLock lock(mutex_);
  if (!wantsBodyInOnePiece()) framing_ = std::move(framing);
}

std::unique_ptr<BodyFraming> DataTaskObject::takeFraming() {
  const MutexLock lock(mutex_);
  return std::move(framing_);
}

void DataTaskObject::resume() {
  {
    const MutexLock lock(mutex_);
    if (state_ != State::suspended) return;
    state_ = State::running;
  }
  if (auto error = start()) complete({std::nullopt, nullptr, std::move(error)});
}

std::optional<Error> DataTaskObject::start() {
  const auto held = session();
  if (!held) return std::nullopt;  // cancelled meanwhile, and already complete
  auto request = withAdditionalHeaders(request_, held->configuration().additionalHeaders);
  if (held->engine().isInvalidated()) return makeURLError(NSURLErrorCancelled, request_->urlText());
  if (auto fault = requestFault(*request, held->configuration())) return fault;
  return held->engine().start(shared_from_this(), std::move(request));
}

void DataTaskObject::cancel() {
  std::shared_ptr<ChallengeGate> gate;
  std::shared_ptr<URLSessionObject> held;
  bool wasStarted = false;
  {
    const MutexLock lock(mutex_);
    if (state_ == State::canceling || state_ == State::completed) return;
    wasStarted = state_ == State::running;
    state_ = State::canceling;
    gate = gate_;
    held = session_;
  }
  if (gate) gate->abort();
  if (!wasStarted) {
    complete({std::nullopt, nullptr, makeURLError(NSURLErrorCancelled, request_->urlText())});
  } else if (held) {
    held->engine().cancel(identifier_);
  }
}

Observation DataTaskObject::observeProgress(std::function<void(const TransferProgress&)> handler) {
  return meter_.observe(std::move(handler));
}

void DataTaskObject::suspendDelivery() {
  window_.suspend();
}

void DataTaskObject::resumeDelivery() {
  if (!window_.resume()) return;
  if (const auto held = session()) held->engine().unpause(identifier_);
}

void DataTaskObject::feedBody() {
  if (const auto held = session()) held->engine().feed(identifier_);
}

void DataTaskObject::setResponse(URLResponseRef response) {
  response_.set(response);
  if (goes_ != Goes::toReceiver || !receiver_.head) return;
  post([response = std::move(response)](DataTaskObject& self, URLSessionObject&) {
    if (self.state() == State::running) self.receiver_.head(response);
  });
}

void DataTaskObject::deliver(Data data) {
  window_.add(data.size());
  post([data = std::move(data)](DataTaskObject& self, URLSessionObject& held) {
    self.handOver(held, data);
  });
}

template <class Work>
DispatchQueue::Block DataTaskObject::blockOf(std::shared_ptr<URLSessionObject> held, Work work) {
  return [self = shared_from_this(), held = std::move(held), work = std::move(work)]() mutable {
    const core::ThreadWork threadWork;
    work(*self, *held);
  };
}

template <class Work>
void DataTaskObject::post(Work work) {
  auto held = session();
  if (!held) return;
  Outbox& outbox = held->engine().outbox();
  outbox.add(blockOf(std::move(held), std::move(work)));
}

void DataTaskObject::handOver(URLSessionObject& held, const Data& data) {
  if (state() == State::running) {
    if (goes_ == Goes::toReceiver) {
      if (receiver_.piece) receiver_.piece(data);
    } else if (const auto delegate = held.delegate()) {
      delegate->didReceiveData(held, shared_from_this(), data);
    }
  }
  if (window_.release(data.size())) held.engine().unpause(identifier_);
}

void DataTaskObject::complete(TaskOutcome outcome) {
  const auto progress = meter_.finish();
  progress ? finishAfter(*progress, std::move(outcome)) : finishOnQueue(std::move(outcome));
}

void DataTaskObject::conclude(TaskOutcome outcome) {
  const auto progress = meter_.finish();
  if (!progress) {
    return post([outcome = std::move(outcome)](DataTaskObject& self, URLSessionObject&) mutable {
      self.finish(std::move(outcome));
    });
  }
  // What has been delivered comes before the end, which takes another way.
  if (const auto held = session()) held->engine().outbox().flush();
  finishAfter(*progress, std::move(outcome));
}

// The last state of the progress is told before the completion is delivered.
void DataTaskObject::finishAfter(DispatchQueue& progress, TaskOutcome outcome) {
  progress.async([self = shared_from_this(), outcome = std::move(outcome)]() mutable {
    const core::ThreadWork threadWork;
    self->finishOnQueue(std::move(outcome));
  });
}

void DataTaskObject::finishOnQueue(TaskOutcome outcome) {
  auto held = session();
  if (!held) return;
  DispatchQueue& queue = held->queue();
  queue.async(blockOf(std::move(held), [outcome = std::move(outcome)](DataTaskObject& self,
                                                                      URLSessionObject&) mutable {
    self.finish(std::move(outcome));
  }));
}

void DataTaskObject::finish(TaskOutcome outcome) {
  DataTaskHandler handler;
  std::shared_ptr<URLSessionObject> held;
  {
    const MutexLock lock(mutex_);
    if (state_ == State::completed) return;
    // Cancelling counts until the very delivery, so that nobody is told success afterwards.
    if (state_ == State::canceling) {
      outcome.body.reset();
      outcome.error = makeURLError(NSURLErrorCancelled, request_->urlText());
    }
    state_ = State::completed;
    handler = std::exchange(handler_, nullptr);
    held = std::exchange(session_, nullptr);
  }
  if (handler) return handler(std::move(outcome.body), outcome.response, outcome.error);
  if (goes_ == Goes::toReceiver) {
    const BodyReceiver receiver = std::exchange(receiver_, {});
    if (receiver.end) receiver.end(outcome.response, outcome.error);
    return;
  }
  if (const auto delegate = held->delegate())
    delegate->didCompleteWithError(*held, shared_from_this(), outcome.error);
}

// Once the process exits nobody answers. A gate that was opened before is aborted.
bool DataTaskObject::openGate(const std::shared_ptr<ChallengeGate>& gate) {
  const MutexLock lock(mutex_);
  if (state_ != State::running || core::isExiting()) return false;
  gate_ = gate;
  return true;
}

void DataTaskObject::abortChallenge() {
  std::shared_ptr<ChallengeGate> gate;
  {
    const MutexLock lock(mutex_);
    gate = gate_;
  }
  if (gate) gate->abort();
}

ChallengeAnswer DataTaskObject::ask(ProtectionSpace space,
                                    std::shared_ptr<security::ServerTrust> trust,
                                    SteadyTime deadline) {
  const auto held = session();
  const auto gate = std::make_shared<ChallengeGate>(std::move(trust));
  if (!held || !openGate(gate))
    return {ChallengeDisposition::rejectProtectionSpace, nullptr, 0, Undecided::cancelled};
  held->engine().outbox().flush();
  held->challengeQueue().async(
      [held, handler = gate->handler(), challenge = Challenge{std::move(space)}] {
        const core::ThreadWork work;
        if (const auto delegate = held->delegate())
          delegate->didReceiveChallenge(*held, challenge, handler);
        else
          handler(ChallengeDisposition::rejectProtectionSpace, nullptr);
      });
  ChallengeAnswer answer = gate->wait(deadline);
  const bool isRefusedUnseen =
      answer.disposition != ChallengeDisposition::useCredential && answer.verifyError == 0;
  if (isRefusedUnseen && !answer.undecided && isClosing()) answer.undecided = Undecided::closing;
  const MutexLock lock(mutex_);
  if (isRefusedUnseen && !answer.undecided && state_ != State::running)
    answer.undecided = Undecided::cancelled;
  gate_.reset();
  return answer;
}

}  // namespace urlloading
}  // namespace kvl
