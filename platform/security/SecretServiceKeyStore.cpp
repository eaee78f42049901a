// The key store in the Secret Service: a visit for each operation, and a deadline for each visit.
#include "platform/security/DeadlineWorker.h"
#include "platform/security/KeyStore.h"
#include "platform/security/SecretServiceItem.h"
#include "platform/security/SecretServiceSession.h"

#include <local/platform/Mutex.h>

#include <functional>
#include <utility>

namespace kvl::security {
namespace {

constexpr std::chrono::minutes kTidyingPause{1};

class SecretServiceKeyStore final : public KeyStore {
 public:
  explicit SecretServiceKeyStore(std::chrono::nanoseconds idleTime)
      : worker_(idleTime, [ahead = ahead_] { ahead->reset(); }) {}

  std::string_view name() const noexcept override { return "Secret Service"; }

  void expectKey() override {
    worker_.prepare([ahead = ahead_](GCancellable* cancellable) {
      auto session = std::make_unique<SecretServiceSession>(cancellable);
      Status status = session->open();
      if (status == kSuccess) status = session->openTransport();
      if (status == kSuccess) *ahead = std::move(session);
      return status;
    });
  }

  Status add(const StoredKey& key, Deadline deadline) override { return addAll({key}, deadline); }

  Status addPair(const StoredKey& publicHalf, const StoredKey& privateHalf,
                 Deadline deadline) override {
    return addAll({publicHalf, privateHalf}, deadline);
  }

  Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys,
              Deadline deadline) override {
    if (tag && !isUsableTag(*tag)) {
      keys.clear();
      return kSuccess;
    }
    const auto found = std::make_shared<std::vector<StoredKey>>();
    const std::optional<std::string> ownTag(tag);
    const Status status = visit(
        [ownTag, found](SecretServiceSession& session) {
          found->clear();
          return session.find(ownTag, *found);
        },
        deadline);
    // After a failure the job may still be filling the list.
    if (status == kSuccess) keys = std::move(*found);
    return status;
  }

  Status remove(std::string_view tag, std::optional<Key::Class> keyClass,
                Deadline deadline) override {
    if (!isUsableTag(tag)) return errSecItemNotFound;
    return visit([ownTag = std::string(tag), keyClass](
                     SecretServiceSession& session) { return session.remove(ownTag, keyClass); },
                 deadline);
  }

 private:
  using OwnedSession = std::unique_ptr<SecretServiceSession>;
  using Afterwards = std::function<void(SecretServiceSession&)>;

  Status addAll(std::vector<StoredKey> keys, Deadline deadline) {
    for (const StoredKey& key : keys)
      if (const Status status = checkStorable(key); status != kSuccess) return status;
    const auto add = [keys = std::move(keys)](SecretServiceSession& session) {
      return session.add(keys);
    };
    if (!isTimeToTidy()) return visit(add, deadline);
    return visit(add, deadline, [](SecretServiceSession& session) { session.removeLeftOvers(); });
  }

  template <class Operation>
  Status visit(Operation operation, Deadline deadline, const Afterwards& afterwards = nullptr) {
    // Of the job alone, or of the job and what comes after it.
    const auto session = std::make_shared<OwnedSession>();
    const auto job = [operation = std::move(operation), ahead = ahead_, session,
                      isLast = !afterwards](GCancellable* cancellable) {
      *session = std::exchange(*ahead, nullptr);
      Status status = goOn(*session, operation, cancellable);
      if (!isAnswer(status)) status = begin(*session, operation, cancellable);
      if ((*session)->wasUnknown()) status = begin(*session, operation, cancellable);
      if (isLast || status != kSuccess) session->reset();
      return status;
    };
    if (!afterwards) return worker_.run(job, deadline);
    return worker_.run(job, deadline, [afterwards, session](GCancellable*) {
      afterwards(**session);
      session->reset();
      return kSuccess;
    });
  }

  static bool isAnswer(Status status) { return status == kSuccess || status == errSecItemNotFound; }

  // A visit that was opened ahead may have lost its service since, so only what it does counts.
  template <class Operation>
  static Status goOn(const OwnedSession& session, const Operation& operation,
                     GCancellable* cancellable) {
    if (!session) return errSecNotAvailable;
    session->continueWith(cancellable);
    return operation(*session);
  }

  template <class Operation>
  static Status begin(OwnedSession& session, const Operation& operation,
                      GCancellable* cancellable) {
    session = std::make_unique<SecretServiceSession>(cancellable);
    const Status opened = session->open();
    return opened == kSuccess ? operation(*session) : opened;
  }

  // With the first key and then now and then, since it takes a call for each key of any program.
  bool isTimeToTidy() {
    const Deadline now = std::chrono::steady_clock::now();
    const MutexLock lock(mutex_);
    if (now < tidyAgain_) return false;
    tidyAgain_ = now + kTidyingPause;
    return true;
  }

  Mutex mutex_;
  Deadline tidyAgain_ KVL_GUARDED_BY(mutex_) = Deadline::min();
  // The visit that the next operation goes on with. Of the worker's thread alone.
  const std::shared_ptr<OwnedSession> ahead_ = std::make_shared<OwnedSession>();
  // A visit that nobody takes is given up: its connection would gather what the service tells.
  DeadlineWorker worker_;
};

}  // namespace

std::shared_ptr<KeyStore> makeSecretServiceKeyStore() {
  return makeSecretServiceKeyStore(DeadlineWorker::kIdleTime);
}

std::shared_ptr<KeyStore> makeSecretServiceKeyStore(std::chrono::nanoseconds idleTime) {
  return std::make_shared<SecretServiceKeyStore>(idleTime);
}

}  // namespace kvl::security
