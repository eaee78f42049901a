#include "platform/security/KeyStore.h"

#include <local/platform/Log.h>
#include <local/platform/Mutex.h>

#include <algorithm>
#include <utility>

namespace kvl::security {
namespace {

using Clock = std::chrono::steady_clock;

// Answers that the store itself stands behind; after any other one the next store is asked.
bool isAnswer(Status status) {
  return status == kSuccess || status == errSecItemNotFound || status == errSecParam;
}

// What one store said to a question.
struct Answer {
  Status status = errSecNotAvailable;
  bool isOverdue = false;  // it used up its time

  // The store may still hold what it was asked to delete. One that is not there at all holds
  // nothing.
  [[nodiscard]] bool isFailure() const {
    return isOverdue || (!isAnswer(status) && status != errSecNotAvailable);
  }
};

// A store that has others after it leaves them a quarter of the time that remains.
Deadline shareOf(Deadline deadline, Clock::time_point now, bool isLast) {
  return isLast ? deadline : now + (deadline - now) / 4 * 3;
}

class FallbackKeyStore final : public KeyStore {
 public:
  FallbackKeyStore(std::vector<std::shared_ptr<KeyStore>> stores, std::chrono::milliseconds pause)
      : pause_(pause), stores_(std::move(stores)), pausedUntil_(stores_.size(), Deadline::min()) {}

  std::string_view name() const noexcept override { return "key store"; }

  void expectKey() override {
    for (std::size_t i = 0; i < stores_.size(); ++i)
      if (!isPaused(i, Clock::now())) stores_[i]->expectKey();
  }

  Status add(const StoredKey& key, Deadline deadline) override {
    return addToOne(deadline,
                    [&](KeyStore& store, Deadline share) { return store.add(key, share); });
  }

  Status addPair(const StoredKey& publicHalf, const StoredKey& privateHalf,
                 Deadline deadline) override {
    return addToOne(deadline, [&](KeyStore& store, Deadline share) {
      return store.addPair(publicHalf, privateHalf, share);
    });
  }

  // Keys may be spread over the stores when one was away for a while, so all are asked.
  Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys,
              Deadline deadline) override {
    std::vector<StoredKey> all;
    Status best = errSecNotAvailable;
    for (std::size_t i = 0; i < stores_.size(); ++i) {
      std::vector<StoredKey> found;
      const Answer answer = ask(i, deadline, [&](KeyStore& store, Deadline share) {
        return store.find(tag, found, share);
      });
      best = better(best, answer.status);
      std::ranges::move(found, std::back_inserter(all));
    }
    if (best == kSuccess) keys = std::move(all);
    return best;
  }

  // No store's failure is hidden by what the others say.
  Status remove(std::string_view tag, std::optional<Key::Class> keyClass,
                Deadline deadline) override {
    Status best = errSecNotAvailable;
    std::optional<Status> failure;
    for (std::size_t i = 0; i < stores_.size(); ++i) {
      const Answer answer = ask(i, deadline, [&](KeyStore& store, Deadline share) {
        return store.remove(tag, keyClass, share);
      });
      if (answer.isFailure() && !failure) failure = answer.status;
      best = better(best, answer.status);
    }
    return failure.value_or(best);
  }

 private:
  // One success is success, one answer of any kind is an answer.
  static Status better(Status best, Status next) {
    return best != kSuccess && isAnswer(next) ? next : best;
  }

  template <class Question>
  Status addToOne(Deadline deadline, Question question) {
    Status status = errSecNotAvailable;
    for (std::size_t i = 0; i < stores_.size(); ++i) {
      const Status answer = ask(i, deadline, question).status;
      if (answer == kSuccess) noteChoice(i);
      if (isAnswer(answer)) return answer;
      status = answer;
    }
    return status;
  }

  template <class Question>
  Answer ask(std::size_t index, Deadline deadline, Question question) {
    const Clock::time_point start = Clock::now();
    if (isPaused(index, start)) return {};
    const Deadline share = shareOf(deadline, start, index + 1 == stores_.size());
    const Status status = question(*stores_[index], share);
    const bool isOverdue = status == errSecNotAvailable && Clock::now() >= share;
    if (isOverdue) pause(index);
    return {status, isOverdue};
  }

  bool isPaused(std::size_t index, Clock::time_point now) {
    const MutexLock lock(mutex_);
    return now < pausedUntil_[index];
  }

  void pause(std::size_t index) {
    {
      const MutexLock lock(mutex_);
      pausedUntil_[index] = Clock::now() + pause_;
    }
    log(LogCategory::keys, LogLevel::warning, "key store: %@ does not answer",
        stores_[index]->name());
  }

  void noteChoice(std::size_t index) {
    {
      const MutexLock lock(mutex_);
      if (std::exchange(chosen_, index) == index) return;
    }
    log(LogCategory::keys, LogLevel::notice, "key store: keys are kept in the %@",
        stores_[index]->name());
  }

  const std::chrono::milliseconds pause_;
  const std::vector<std::shared_ptr<KeyStore>> stores_;
  Mutex mutex_;
  std::vector<Deadline> pausedUntil_ KVL_GUARDED_BY(mutex_);  // of each store
  std::size_t chosen_ KVL_GUARDED_BY(mutex_) = 0;
};

}  // namespace

std::shared_ptr<KeyStore> makeFallbackKeyStore(std::vector<std::shared_ptr<KeyStore>> stores,
                                               std::chrono::milliseconds pause) {
  return std::make_shared<FallbackKeyStore>(std::move(stores), pause);
}

}  // namespace kvl::security
