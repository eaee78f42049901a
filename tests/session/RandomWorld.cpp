#include "tests/session/RandomWorld.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace kvltest {
namespace {

class ScheduledQueue final : public kvl::DispatchQueue {
 public:
  ScheduledQueue(Scheduler& scheduler, std::size_t number, bool isSerial)
      : scheduler_(scheduler), number_(number), isSerial_(isSerial) {}

  void async(Block block) override { asyncAfter({}, std::move(block)); }
  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    scheduler_.add(number_, isSerial_, delay, std::move(block));
  }
  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  Scheduler& scheduler_;
  const std::size_t number_;
  const bool isSerial_;
  const std::string label_ = "scheduled";
};

std::int64_t numberIn(std::string_view text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

std::shared_ptr<kvl::DispatchQueue> Scheduler::queue(bool isSerial) {
  return std::make_shared<ScheduledQueue>(*this, queues_++, isSerial);
}

void Scheduler::add(std::size_t queue, bool isSerial, Nanoseconds delay, Block block) {
  pending_.push_back({queue, isSerial, now_ + delay, std::move(block)});
}

bool Scheduler::isRunnable(std::size_t index) const {
  const auto& candidate = pending_[index];
  if (candidate.due > now_) return false;
  const auto end = pending_.begin() + static_cast<std::ptrdiff_t>(index);
  return !candidate.isSerial || std::none_of(pending_.begin(), end, [&](const auto& earlier) {
    return earlier.queue == candidate.queue;
  });
}

bool Scheduler::runOne() {
  std::vector<std::size_t> runnable;
  for (std::size_t i = 0; i < pending_.size(); ++i) {
    if (isRunnable(i)) runnable.push_back(i);
  }
  if (runnable.empty()) return false;
  const auto chosen =
      pending_.begin() + static_cast<std::ptrdiff_t>(runnable[below(runnable.size())]);
  const auto block = std::move(chosen->block);
  pending_.erase(chosen);
  block();
  return true;
}

bool Scheduler::passTime() {
  std::optional<Nanoseconds> next;
  for (const auto& each : pending_) {
    if (each.due > now_ && (!next || each.due < *next)) next = each.due;
  }
  if (next) now_ = *next;
  return next.has_value();
}

std::size_t Scheduler::pending() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(pending_, [](const auto& each) { return !each.isSerial; }));
}

class RandomService::Task final : public kvl::DataTask,
                                  public std::enable_shared_from_this<RandomService::Task> {
 public:
  Task(std::shared_ptr<Loader> loader, kvl::URLRequest request, kvl::DataTaskHandler handler);

  [[nodiscard]] std::uint64_t taskIdentifier() const noexcept override { return identifier_; }
  [[nodiscard]] State state() const noexcept override { return state_; }
  [[nodiscard]] const kvl::URLRequest& originalRequest() const noexcept override {
    return request_;
  }
  [[nodiscard]] kvl::URLResponseRef response() const override { return nullptr; }
  void resume() override;
  void cancel() override;
  void setPrefersIncrementalDelivery(bool prefers) override { prefersIncremental_ = prefers; }
  [[nodiscard]] bool prefersIncrementalDelivery() const noexcept override {
    return prefersIncremental_;
  }

  [[nodiscard]] bool isStream() const { return isStream_; }
  // On the queue of its HTTPS session object.
  void deliver(std::string bytes);
  void complete(std::optional<kvl::Data> data, std::optional<kvl::Error> error);

  std::int64_t nextEvent = 1;

 private:
  const std::shared_ptr<Loader> loader_;
  const std::uint64_t identifier_;
  const kvl::URLRequest request_;
  const bool isStream_;
  kvl::DataTaskHandler handler_;
  State state_ = State::suspended;
  bool prefersIncremental_ = false;
};

class RandomService::Loader final : public kvl::URLSession,
                                    public std::enable_shared_from_this<RandomService::Loader> {
 public:
  Loader(RandomService& given, std::shared_ptr<kvl::DispatchQueue> queue,
         kvl::URLSessionConfiguration configuration,
         std::weak_ptr<kvl::URLSessionDelegate> receiver)
      : service(given),
        calls(std::move(queue)),
        delegate(std::move(receiver)),
        configuration_(std::move(configuration)) {}

  using kvl::URLSession::dataTask;
  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(const kvl::URLRequest& request) override {
    return dataTask(request, nullptr);
  }
  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(const kvl::URLRequest& request,
                                                        kvl::DataTaskHandler handler) override {
    return std::make_shared<Task>(shared_from_this(), request, std::move(handler));
  }
  void finishTasksAndInvalidate() override { isInvalid_ = true; }
  void invalidateAndCancel() override { isInvalid_ = true; }
  [[nodiscard]] bool isInvalidated() const override { return isInvalid_; }
  [[nodiscard]] const kvl::URLSessionConfiguration& configuration() const noexcept override {
    return configuration_;
  }

  RandomService& service;
  const std::shared_ptr<kvl::DispatchQueue> calls;
  const std::weak_ptr<kvl::URLSessionDelegate> delegate;

 private:
  const kvl::URLSessionConfiguration configuration_;
  bool isInvalid_ = false;
};

RandomService::Task::Task(std::shared_ptr<Loader> loader, kvl::URLRequest request,
                          kvl::DataTaskHandler handler)
    : loader_(std::move(loader)),
      identifier_([] {
        static std::uint64_t next = 3'000'000;
        return next++;
      }()),
      request_(std::move(request)),
      isStream_(!handler),
      handler_(std::move(handler)) {
  if (const auto last = request_.headers().find("Last-Event-ID")) nextEvent = numberIn(*last) + 1;
}

void RandomService::Task::resume() {
  state_ = State::running;
  loader_->service.begin(shared_from_this());
}

void RandomService::Task::cancel() {
  if (state_ != State::running) return;
  state_ = State::canceling;
  loader_->service.end(shared_from_this(),
                       kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
}

void RandomService::Task::deliver(std::string bytes) {
  loader_->calls->async([self = shared_from_this(), bytes = std::move(bytes)] {
    if (const auto receiver = self->loader_->delegate.lock()) {
      receiver->didReceiveData(*self->loader_, self, kvl::Data::fromText(bytes));
    }
  });
}

void RandomService::Task::complete(std::optional<kvl::Data> data, std::optional<kvl::Error> error) {
  loader_->calls->async(
      [self = shared_from_this(), data = std::move(data), error = std::move(error)] {
        self->state_ = State::completed;
        if (const auto handler = std::exchange(self->handler_, nullptr))
          return handler(data, nullptr, error);
        if (const auto receiver = self->loader_->delegate.lock()) {
          receiver->didCompleteWithError(*self->loader_, self, error);
        }
      });
}

std::shared_ptr<kvl::URLSession> RandomService::urlSession(
    kvl::URLSessionConfiguration configuration, std::weak_ptr<kvl::URLSessionDelegate> delegate) {
  return std::make_shared<Loader>(*this, scheduler_.queue(true), std::move(configuration),
                                  std::move(delegate));
}

void RandomService::begin(const std::shared_ptr<Task>& task) {
  tasks_.push_back(task);
}

void RandomService::end(const std::shared_ptr<Task>& task, const std::optional<kvl::Error>& error) {
  if (std::erase(tasks_, task) == 0) return;
  const auto body = kvl::Data::fromText(task->originalRequest().urlText());
  task->complete(error ? std::nullopt : std::optional(body), error);
}

// One to three events, of which the end may come in the next piece's chunk.
void RandomService::sendEvents(const std::shared_ptr<Task>& task) {
  std::string bytes;
  for (auto count = 1 + scheduler_.below(3); count > 0; --count) {
    const auto number = std::to_string(task->nextEvent++);
    bytes.append("event: e\nid: ").append(number).append("\ndata: ").append(number).append("\n\n");
  }
  task->deliver(std::move(bytes));
}

void RandomService::serve() {
  if (tasks_.empty()) return;
  const auto task = tasks_[scheduler_.below(tasks_.size())];
  if (task->isStream() && !scheduler_.happens(8)) return sendEvents(task);
  constexpr std::int64_t codes[] = {
      kvl::NSURLErrorTimedOut, kvl::NSURLErrorCancelled, kvl::NSURLErrorNetworkConnectionLost,
      kvl::NSURLErrorClientCertificateRejected, kvl::NSURLErrorSecureConnectionFailed};
  if (!scheduler_.happens(3)) return end(task, std::nullopt);
  end(task, kvl::Error(kvl::NSURLErrorDomain, codes[scheduler_.below(std::size(codes))]));
}

void RandomService::endAll() {
  while (!tasks_.empty()) end(tasks_.back(), std::nullopt);
}

}  // namespace kvltest
