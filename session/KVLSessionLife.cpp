// A session's states, those who wait for them, and its end.
//
// The end is made of steps of which each may meet whatever else the session does. First the gate is
// closed: from then on nothing begins that looks at it. Then, in one section, the stream is
// cancelled, signature and HTTPS session object go, and state 4 is entered. A notarisation that
// completes meanwhile comes before that section or after it, and looks at the gate in its own. With
// no lock held any more the requests are cancelled and the timers emptied. Last the keys go, when
// nobody asks the notary any more.
#include "platform/core/Sentence.h"
#include "session/Monitors.h"
#include "session/SessionImplementation.h"

#include <local/KVLSession.h>
#include <local/platform/Semaphore.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace {

using kvl::session::EstablishmentWaiters;
using kvl::session::SessionSection;
using kvl::session::StreamSection;

// A delay is counted in nanoseconds, of which 64 bits hold 292 years.
constexpr std::chrono::nanoseconds kLongestLimit = std::chrono::hours(24) * 365 * 200;

kvl::Error cancelled() {
  return {kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled};
}

}  // namespace

std::string_view KVLSessionStateText(KVLSessionState state) {
  switch (state) {
    case KVLSessionStateConnecting:
      return "connecting";
    case KVLSessionStateEstablished:
      return "established";
    case KVLSessionStateDisconnected:
      return "disconnected";
    case KVLSessionStateRecovering:
      return "recovering";
    case KVLSessionStateEnded:
      return "ended";
  }
  return "unknown";
}

kvl::Error kvl::session::notEstablished() {
  return {kvl::NSURLErrorDomain,
          kvl::NSURLErrorUnknown,
          {{kvl::NSLocalizedDescriptionKey,
            kvl::translatable("Notarised session is not established.")}}};
}

std::shared_ptr<const kvl::Progress> KVLSession::progress() const {
  return implementation_->progress;
}

kvl::Observation KVLSession::observeState(std::function<void(KVLSessionState)> handler) const {
  kvl::MutexLock lock(implementation_->stateMutex);
  return implementation_->stateObservers.add(std::move(handler), implementation_->state);
}

KVLSessionState KVLSession::state() const {
  kvl::MutexLock lock(implementation_->stateMutex);
  return implementation_->state;
}

// Observers hear of states that are entered, not of those that merely stay.
void KVLSession::setState(KVLSessionState state) {
  auto& self = *implementation_;
  kvl::MutexLock lock(self.stateMutex);
  if (self.state == KVLSessionStateEnded || state == KVLSessionStateEnded) return;
  if (std::exchange(self.state, state) == state) return;
  self.stateObservers.notify(state);
}

void KVLSession::Implementation::enterEnd() {
  kvl::MutexLock lock(stateMutex);
  if (std::exchange(state, KVLSessionStateEnded) == KVLSessionStateEnded) return;
  stateObservers.notify(state);
  progress->update({1, 0, "Ended", ""});
}

void KVLSession::Implementation::show(kvl::ProgressState shown) {
  kvl::MutexLock lock(stateMutex);
  if (state != KVLSessionStateEnded) progress->update(std::move(shown));
}

std::optional<kvl::Error> KVLSession::lastError() const {
  kvl::MutexLock lock(implementation_->stateMutex);
  return implementation_->lastError;
}

void KVLSession::Implementation::setLastError(std::optional<kvl::Error> error) {
  kvl::MutexLock lock(stateMutex);
  if (state != KVLSessionStateEnded) lastError = std::move(error);
}

void KVLSession::Implementation::noteOutcome(bool hasSignature,
                                             const std::optional<kvl::Error>& failure) {
  kvl::MutexLock lock(stateMutex);
  lastError = hasSignature ? std::nullopt : failure;
  lastNotarisationFailed = failure.has_value();
}

// What is read first is what changes last, so that nothing is taken for settled whose end has not
// been told.
KVLSession::Implementation::Settled KVLSession::Implementation::settled(KVLSessionWait how) const {
  Settled outcome;
  {
    kvl::MutexLock lock(stateMutex);
    const bool hasFailed = how == KVLSessionWait::untilFirstFailure && lastNotarisationFailed;
    if (state == KVLSessionStateEstablished) {
      outcome.emplace();
    } else if (hasFailed && lastError && !awaitingSignature) {
      outcome.emplace(lastError);
    }
  }
  if (completing > 0) outcome.reset();  // whoever waits is told when that is through
  return outcome;
}

std::optional<kvl::Error> KVLSession::Implementation::atLimit() const {
  kvl::MutexLock lock(stateMutex);
  if (state == KVLSessionStateEstablished) return std::nullopt;
  return lastError ? *lastError : kvl::Error(kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode);
}

kvl::Observation KVLSession::whenEstablished(std::chrono::nanoseconds limit,
                                             EstablishedHandler handler, KVLSessionWait how) const {
  const auto& self = *implementation_;
  auto waiter = std::make_shared<EstablishmentWaiters::Observer>(std::move(handler));
  // Added before anything is looked at: what changes after the look tells those that are there.
  self.waiters.add(waiter, how);
  if (const auto outcome = self.settled(how)) {
    self.waiters.tell(waiter, *outcome);
  } else if (limit <= std::chrono::nanoseconds::zero()) {
    self.waiters.tell(waiter, self.atLimit());
  } else if (limit < kLongestLimit) {
    self.timerQueue()->asyncAfter(limit, [weak = weak_from_this(), late = std::weak_ptr(waiter)] {
      const auto session = weak.lock();
      const auto observer = late.lock();
      if (!session || !observer) return;
      session->implementation_->waiters.tell(observer, session->implementation_->atLimit());
    });
  }
  return kvl::Observation(std::move(waiter));
}

std::optional<kvl::Error> KVLSession::waitUntilEstablished(std::chrono::nanoseconds limit,
                                                           KVLSessionWait how) const {
  kvl::Semaphore told;
  std::optional<kvl::Error> outcome;
  auto waiting = whenEstablished(
      std::chrono::nanoseconds::max(),
      [&](const std::optional<kvl::Error>& error) {
        outcome = error;
        told.signal();
      },
      how);
  if (told.waitFor(std::max(limit, std::chrono::nanoseconds::zero()))) return outcome;
  waiting.end();
  if (told.tryWait()) return outcome;
  if (isEnded()) return cancelled();
  return implementation_->atLimit();
}

bool KVLSession::isEnded() const {
  return implementation_->gate.isClosed();
}

void KVLSession::end(EndHandler completionHandler) {
  auto& self = *implementation_;
  if (!self.home.isThisProcess()) return;
  const auto keeper = shared_from_this();  // which a timer may be the last to hold
  self.endHandlers->add(std::move(completionHandler));
  if (!self.gate.close()) return;
  self.shutDown();
  self.timers.release();
  self.waiters.close(cancelled());
  if (self.gate.leave()) self.letGoOfKeys();
}

void KVLSession::Implementation::shutDown() {
  {
    const auto stream = eventStream.get();
    const StreamSection streamSection(stream);
    const SessionSection section(signature);
    stream->cancel();
    signature.set(nullptr);
    draining.add(session.exchange(nullptr));
    enterEnd();
  }
  for (const auto& closing : draining.take()) closing->invalidateAndCancel();
}

void KVLSession::Implementation::letGoOfKeys() {
  std::shared_ptr<KVLNotary> used;
  {
    const kvl::MutexLock lock(notaryMutex);
    usesNotary = false;
    used = notary.get();
  }
  used->endUser([handlers = endHandlers](std::optional<kvl::Error> keyError) {
    handlers->complete(std::move(keyError));
  });
}
