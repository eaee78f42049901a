// An HTTPS session object that sends nothing: the test completes its tasks.
#pragma once

#include <local/platform/URLSession.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kvltest {

class FakeDataTask final : public kvl::DataTask {
 public:
  FakeDataTask(std::uint64_t identifier, kvl::URLRequest request, kvl::DataTaskHandler handler)
      : identifier_(identifier), request_(std::move(request)), handler_(std::move(handler)) {}

  [[nodiscard]] std::uint64_t taskIdentifier() const noexcept override { return identifier_; }
  [[nodiscard]] State state() const noexcept override { return state_; }
  [[nodiscard]] const kvl::URLRequest& originalRequest() const noexcept override {
    return request_;
  }
  [[nodiscard]] kvl::URLResponseRef response() const override { return nullptr; }
  void resume() override { state_ = State::running; }
  void cancel() override { state_ = State::canceling; }
  void setPrefersIncrementalDelivery(bool prefers) override { prefersIncremental_ = prefers; }
  [[nodiscard]] bool prefersIncrementalDelivery() const noexcept override {
    return prefersIncremental_;
  }

  void suspendDelivery() override {
    if (onHold) onHold(true);
    ++suspensions;
  }
  void resumeDelivery() override {
    if (onHold) onHold(false);
    --suspensions;
  }

  [[nodiscard]] kvl::DataTaskHandler takeHandler() { return std::exchange(handler_, nullptr); }
  [[nodiscard]] bool hasHandler() const { return handler_ != nullptr; }
  void complete(const std::optional<kvl::Data>& data, const kvl::URLResponseRef& response,
                const std::optional<kvl::Error>& error) {
    state_ = State::completed;
    if (const auto handler = std::exchange(handler_, nullptr)) handler(data, response, error);
  }
  void fail(const kvl::Error& error) { complete(std::nullopt, nullptr, error); }

  std::atomic<int> suspensions = 0;
  std::function<void(bool holds)> onHold;

 private:
  const std::uint64_t identifier_;
  const kvl::URLRequest request_;
  kvl::DataTaskHandler handler_;
  std::atomic<State> state_ = State::suspended;
  std::atomic<bool> prefersIncremental_ = false;
};

class FakeURLSession final : public kvl::URLSession {
 public:
  using kvl::URLSession::dataTask;

  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(const kvl::URLRequest& request) override {
    return dataTask(request, nullptr);
  }
  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(
      const kvl::URLRequest& request, kvl::DataTaskHandler completionHandler) override {
    static std::atomic<std::uint64_t> next = 1'000'000;
    if (whenATaskIsMade) whenATaskIsMade();
    auto task = std::make_shared<FakeDataTask>(next++, request, std::move(completionHandler));
    const std::lock_guard lock(mutex_);
    tasks_.push_back(task);
    return task;
  }
  void finishTasksAndInvalidate() override {
    if (whenItFinishes) whenItFinishes();
    ++invalidations;
  }
  void invalidateAndCancel() override { ++invalidations; }
  [[nodiscard]] bool isInvalidated() const override { return invalidations > 0; }
  [[nodiscard]] const kvl::URLSessionConfiguration& configuration() const noexcept override {
    return settings;
  }

  [[nodiscard]] std::vector<std::shared_ptr<FakeDataTask>> tasks() const {
    const std::lock_guard lock(mutex_);
    return tasks_;
  }

  // Forgets the tasks, and with them their handlers.
  void dropTasks() {
    std::vector<std::shared_ptr<FakeDataTask>> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(tasks_);
  }

  std::atomic<int> invalidations = 0;
  // Set before anybody asks.
  kvl::URLSessionConfiguration settings;
  std::function<void()> whenATaskIsMade;
  std::function<void()> whenItFinishes;

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<FakeDataTask>> tasks_;
};

}  // namespace kvltest
