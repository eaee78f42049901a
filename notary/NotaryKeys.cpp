#include "notary/NotaryKeys.h"

#include "notary/Keychain.h"
#include "notary/ProcessReferences.h"

#include <local/KVLCertificateRequest.h>
#include <local/platform/HostApplication.h>
#include <local/platform/Log.h>

#include <utility>

namespace kvl::notary {

NotaryKeys::NotaryKeys(std::shared_ptr<const Environment> environment)
    : environment_(std::move(environment)) {}

void NotaryKeys::doWithout() {
  const MutexLock lock(mutex_);
  ownsKeys_ = false;
  phase_ = Phase::ready;
}

void NotaryKeys::make() {
  while (beginMaking()) {
    produce();
    finishMaking();
  }
}

// Keys that are there or being made may be removed before anybody has seen them.
bool NotaryKeys::beginMaking() {
  MutexLock lock(mutex_);
  while (phase_ == Phase::making || phase_ == Phase::removing) changed_.wait(lock);
  if (phase_ == Phase::ready || isClosed_) return false;
  phase_ = Phase::making;
  return true;
}

void NotaryKeys::makeInBackground() {
  const MutexLock lock(mutex_);
  if (phase_ == Phase::none) startMaking();
}

void NotaryKeys::startMaking() {
  phase_ = Phase::making;
  environment_->lookupQueue()->async([self = shared_from_this()] {
    if (self->isWanted()) self->produce();
    self->finishMaking();
  });
}

void NotaryKeys::startRemoving() {
  phase_ = Phase::removing;
  environment_->lookupQueue()->async([self = shared_from_this()] { self->remove(); });
}

void NotaryKeys::whenReady(Asker asker) {
  {
    const MutexLock lock(mutex_);
    if (phase_ == Phase::none) startMaking();
    if (phase_ != Phase::ready) return waiting_.push_back(std::move(asker));
  }
  asker(this);
}

void NotaryKeys::addUser() {
  const MutexLock lock(mutex_);
  ++users_;
}

void NotaryKeys::removeUser() {
  const MutexLock lock(mutex_);
  --users_;
}

void NotaryKeys::endUser(Ended ended) {
  std::vector<Asker> refused;
  {
    const MutexLock lock(mutex_);
    --users_;
    if (users_ == 0 && ownsKeys_ && phase_ != Phase::none) {
      removals_.push_back(std::exchange(ended, nullptr));
      refused.swap(waiting_);
      if (phase_ == Phase::ready) startRemoving();
    }
  }
  for (const auto& asker : refused) asker(nullptr);
  if (ended) ended(std::nullopt);
}

void NotaryKeys::close() {
  privateKey.set(nullptr);
  std::vector<Asker> refused;
  bool areThere = false;
  {
    const MutexLock lock(mutex_);
    isClosed_ = true;
    refused.swap(waiting_);
    areThere = phase_ == Phase::ready && ownsKeys_;
  }
  for (const auto& asker : refused) asker(nullptr);
  if (areThere) (void)deleteFromStore();
}

bool NotaryKeys::isWanted() {
  const MutexLock lock(mutex_);
  return !isClosed_ && removals_.empty();
}

// Failures are logged, and the notary then has no keys and no request.
void NotaryKeys::produce() {
  if (!hostIdentifier()) {
    log(LogCategory::keys, LogLevel::error,
        "no host identifier: call kvl::setHostIdentifier before the first notary is made");
    const MutexLock lock(mutex_);
    ownsKeys_ = false;
    return;
  }
  // Beside the deletion, which waits for the bus most of the time.
  auto pair = beginKeys();
  const auto store = environment_->keyStore();
  if (const auto error = deleteKeys(*store))
    log(LogCategory::keys, LogLevel::error, "existing key deletion error: %@", *error);
  KeyRef publicHalf;
  KeyRef privateHalf;
  if (const auto error = createKeys(*store, &publicHalf, &privateHalf, &pair))
    return log(LogCategory::keys, LogLevel::error, "key creation error: %@", *error);
  if (!privateHalf) return log(LogCategory::keys, LogLevel::error, "failed to create keys");
  keepForProcess(privateHalf);
  keepForProcess(publicHalf);
  privateKey.set(privateHalf);
  publicKey.set(publicHalf);
  std::optional<Error> error;
  request.set(
      KVLCertificateRequest::createForPublicKey(std::move(publicHalf), privateHalf, &error));
  if (error)
    log(LogCategory::keys, LogLevel::error, "certificate signing request error: %@", *error);
}

void NotaryKeys::finishMaking() {
  std::vector<Asker> ready;
  {
    const MutexLock lock(mutex_);
    if (isClosed_ || !removals_.empty()) return startRemoving();
    phase_ = Phase::ready;
    ready.swap(waiting_);
    changed_.notifyAll();
  }
  for (const auto& asker : ready) asker(this);
}

// A notarisation that has been asked for meanwhile gets new keys.
void NotaryKeys::remove() {
  privateKey.set(nullptr);
  publicKey.set(nullptr);
  request.set(std::nullopt);
  const auto error = deleteFromStore();
  std::vector<Ended> told;
  {
    const MutexLock lock(mutex_);
    phase_ = Phase::none;
    told.swap(removals_);
    if (!waiting_.empty()) startMaking();
    changed_.notifyAll();
  }
  for (const auto& ended : told) ended(error);
}

std::optional<Error> NotaryKeys::deleteFromStore() const {
  auto error = deleteKeys(*environment_->keyStore());
  if (error) log(LogCategory::keys, LogLevel::error, "key deletion error: %@", *error);
  return error;
}

}  // namespace kvl::notary
