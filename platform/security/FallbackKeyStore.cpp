#include "platform/security/KeyStore.h"

#include <local/platform/Log.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace kvl::security {
namespace {

using Clock = std::chrono::steady_clock;

// A store of the chain and how it did.
struct Link {
  std::shared_ptr<KeyStore> store;
  Deadline pausedUntil = Deadline::min();
};

// Answers that the store itself stands behind; after any other one the next store is asked.
bool isAnswer(Status status) {
  return status == kSuccess || status == errSecItemNotFound || status == errSecParam;
}

// A store that has others after it leaves them a quarter of the time that remains.
Deadline shareOf(Deadline deadline, Clock::time_point now, bool isLast) {
  return isLast ? deadline : now + (deadline - now) / 4 * 3;
}

class FallbackKeyStore final : public KeyStore {
 public:
  FallbackKeyStore(std::vector<std::shared_ptr<KeyStore>> stores, std::chrono::milliseconds pause)
      : pause_(pause) {
    for (std::shared_ptr<KeyStore>& store : stores) links_.push_back({std::move(store)});
  }

  std::string_view name() const noexcept override { return "key store"; }

  Status add(const StoredKey& key, Deadline deadline) override {
    Status status = errSecNotAvailable;
    for (std::size_t i = 0; i < links_.size(); ++i) {
      const Status answer =
          ask(i, deadline, [&](KeyStore& store, Deadline share) { return store.add(key, share); });
      if (answer == kSuccess) noteChoice(i);
      if (isAnswer(answer)) return answer;
      status = answer;
    }
    return status;
  }

  // Keys may be spread over the stores when one was away for a while, so all are asked.
  Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys,
              Deadline deadline) override {
    std::vector<StoredKey> all;
    const Status status = askAll(deadline, [&](KeyStore& store, Deadline share) {
      std::vector<StoredKey> found;
      const Status answer = store.find(tag, found, share);
      if (answer == kSuccess) std::ranges::move(found, std::back_inserter(all));
      return answer;
    });
    if (status == kSuccess) keys = std::move(all);
    return status;
  }

  Status remove(std::string_view tag, std::optional<Key::Class> keyClass,
                Deadline deadline) override {
    return askAll(deadline, [&](KeyStore& store, Deadline share) {
      return store.remove(tag, keyClass, share);
    });
  }

 private:
  // The best answer: one success is success, one answer of any kind is an answer.
  template <class Question>
  Status askAll(Deadline deadline, Question question) {
    Status best = errSecNotAvailable;
    for (std::size_t i = 0; i < links_.size(); ++i) {
      const Status answer = ask(i, deadline, question);
      if (best != kSuccess && isAnswer(answer)) best = answer;
    }
    return best;
  }

  template <class Question>
  Status ask(std::size_t index, Deadline deadline, Question question) {
    const Clock::time_point start = Clock::now();
    if (isPaused(index, start)) return errSecNotAvailable;
    const Deadline share = shareOf(deadline, start, index + 1 == links_.size());
    const Status answer = question(*links_[index].store, share);
    if (answer == errSecNotAvailable && Clock::now() >= share) pause(index);
    return answer;
  }

  bool isPaused(std::size_t index, Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    return now < links_[index].pausedUntil;
  }

  void pause(std::size_t index) {
    {
      const std::lock_guard lock(mutex_);
      links_[index].pausedUntil = Clock::now() + pause_;
    }
    log("key store: %@ does not answer", links_[index].store->name());
  }

  void noteChoice(std::size_t index) {
    {
      const std::lock_guard lock(mutex_);
      if (std::exchange(chosen_, index) == index) return;
    }
    log("key store: keys are kept in the %@", links_[index].store->name());
  }

  const std::chrono::milliseconds pause_;
  std::mutex mutex_;
  std::vector<Link> links_;  // the stores are constant, the times are protected by mutex_
  std::size_t chosen_ = 0;   // protected by mutex_
};

}  // namespace

std::shared_ptr<KeyStore> makeFallbackKeyStore(std::vector<std::shared_ptr<KeyStore>> stores,
                                               std::chrono::milliseconds pause) {
  return std::make_shared<FallbackKeyStore>(std::move(stores), pause);
}

}  // namespace kvl::security
