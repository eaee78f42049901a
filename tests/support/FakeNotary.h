// A notary whose answers the test gives.
#pragma once

#include "tests/support/MadeCertificate.h"

#include <local/KVLNotary.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace kvltest {

class FakeNotary final : public KVLNotary {
 public:
  FakeNotary() : KVLNotary(WithoutKeys{}) {}

  void notariseWithCompletionHandler(CompletionHandler completionHandler) override {
    if (whenAsked) whenAsked();
    const std::lock_guard lock(mutex_);
    ++calls_;
    waiting_.push_back(std::move(completionHandler));
    changed_.notify_all();
  }

  [[nodiscard]] std::size_t calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }
  [[nodiscard]] std::size_t outstanding() const {
    const std::lock_guard lock(mutex_);
    return waiting_.size();
  }

  // Answers the oldest outstanding call on this thread.
  void answer(const std::shared_ptr<KVLNotarySignature>& signature,
              const std::optional<kvl::Error>& error = std::nullopt) {
    CompletionHandler handler;
    {
      const std::lock_guard lock(mutex_);
      if (waiting_.empty()) {
        ADD_FAILURE() << "nobody asked the notary";
        return;
      }
      handler = std::move(waiting_.front());
      waiting_.pop_front();
    }
    handler(signature, error);
  }

  // Drops the outstanding calls unanswered.
  void drop() {
    std::deque<CompletionHandler> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(waiting_);
  }

  // Set before anybody asks.
  std::function<void()> whenAsked;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<CompletionHandler> waiting_;
  std::size_t calls_ = 0;
};

inline std::shared_ptr<KVLNotarySignature> signatureFor(const std::string& baseURL) {
  auto signature = std::make_shared<KVLNotarySignature>();
  signature->setBaseURL(kvl::URL::parse(baseURL));
  return signature;
}

inline std::shared_ptr<KVLNotarySignature> signatureEnding(kvl::Date end) {
  auto signature = signatureFor("https://127.0.0.1:4321/base/");
  signature->setClient(certificateEnding(end));
  return signature;
}

}  // namespace kvltest
