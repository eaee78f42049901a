// The notarisation loop.
#include "platform/formatting/LocalisedTime.h"
#include "session/Monitors.h"
#include "session/SessionImplementation.h"
#include "session/SessionTrace.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>
#include <local/platform/Translation.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

using kvl::session::notEstablished;
using kvl::session::SessionSection;
using kvl::session::StreamSection;

// The part of a signature's remaining lifetime after which it is renewed.
constexpr double kUsedShare = 0.8;
// A delay is counted in nanoseconds, of which 64 bits hold 292 years.
constexpr double kLongestDelay = 9.0e9;

// Until the renewal of a signature that has `lifetime` seconds left, in whole seconds; none for one
// that has ended.
std::optional<std::chrono::seconds> renewalDelay(double lifetime) noexcept {
  const double share = lifetime * kUsedShare;
  if (!(share > 0)) return std::nullopt;
  return std::chrono::seconds(static_cast<std::int64_t>(std::min(share, kLongestDelay)));
}

// Where the notary is, for the user: its path, else the file that the error names.
std::string locationText(const KVLNotary& notary, const kvl::Error& error) {
  if (const auto path = notary.path()) return *path;
  const kvl::Value& file = error.userInfo()[kvl::NSFilePathErrorKey];
  return file.isNull() ? std::string(kvl::kNullText) : file.description();
}

}  // namespace

void KVLSession::enqueueNotarisation() {
  auto& self = *implementation_;
  if (!self.home.isThisProcess() || !self.gate.enter()) return;
  const auto keeper = shared_from_this();
  bool isOutstanding = false;
  {
    const SessionSection section(self.signature);
    isOutstanding = self.awaitingSignature.exchange(true);
  }
  if (!isOutstanding) {
    const auto asked = kvl::session::traceNotarisation();
    self.notary.get()->notariseWithCompletionHandler(
        [session = keeper, asked](const std::shared_ptr<KVLNotarySignature>& signature,
                                  const std::optional<kvl::Error>& error) {
          kvl::session::traceNotarisationEnd(asked, error);
          session->implementation_->completeNotarisation(session, signature, error);
        });
  }
  if (self.gate.leave()) self.letGoOfKeys();
}

void KVLSession::Implementation::completeNotarisation(
    const std::shared_ptr<KVLSession>& owner, const std::shared_ptr<KVLNotarySignature>& received,
    const std::optional<kvl::Error>& error) {
  ++completing;
  const bool counts = takeOutcome(*owner, received, error);
  // `end` has come while this had the monitor of a stream that is no longer the session's.
  if (!counts || gate.isClosed()) {
    --completing;
    return shutDown();
  }
  const auto& limits = environment->limits;
  auto delay = limits.defaultDelay;
  if (error) {
    kvl::log(kvl::LogCategory::session, kvl::LogLevel::error, "notarisation error: %@", *error);
    if (isRecoverableError(error)) delay = limits.recoverableDelay;
  } else if (const auto expires = received ? received->expires() : std::nullopt) {
    delay = renewalDelay(expires->secondsSince(environment->now())).value_or(delay);
  }
  scheduleNotarisation(owner, delay);
  --completing;
  tellWaiters(error || received ? error : notEstablished());
}

bool KVLSession::Implementation::takeOutcome(KVLSession& owner,
                                             const std::shared_ptr<KVLNotarySignature>& received,
                                             const std::optional<kvl::Error>& error) {
  const auto stream = eventStream.get();
  const StreamSection streamSection(stream);
  const SessionSection section(signature, received);
  awaitingSignature = false;
  if (gate.isClosed()) return false;
  noteOutcome(received != nullptr, error || received ? error : notEstablished());
  signature.set(received);
  if (received) {
    establish(owner, *received, *stream);
  } else {
    disestablish(owner);
  }
  if (error) noteFailure(owner, *error);
  return true;
}

void KVLSession::Implementation::noteFailure(KVLSession& owner, const kvl::Error& error) {
  const auto& limits = environment->limits;
  const bool recoverable = isRecoverableError(error);
  setLastError(error);
  owner.setState(recoverable ? KVLSessionStateRecovering : KVLSessionStateDisconnected);
  showFailure(error, recoverable ? limits.recoverableDelay : limits.defaultDelay);
}

void KVLSession::Implementation::tellWaiters(const std::optional<kvl::Error>& failure) {
  if (!failure) return waiters.tellAll(std::nullopt);
  waiters.tellFailure(*failure);
}

// The HTTPS session object before is only let go, so that its running tasks may finish.
void KVLSession::Implementation::establish(KVLSession& owner, const KVLNotarySignature& received,
                                           KVLEventStreamState& stream) {
  draining.add(
      session.exchange(environment->urlSession(configuration.get(), owner.weak_from_this())));
  owner.setState(KVLSessionStateEstablished);
  show({1, 1, kvl::translated("Established"),
        kvl::format(kvl::translated("Notarised for \"%@\""), received.baseURL())});
  stream.streamFromURL(eventSource.get(), owner);
}

void KVLSession::Implementation::disestablish(KVLSession& owner) {
  if (const auto closing = session.exchange(nullptr)) {
    draining.add(closing);
    closing->finishTasksAndInvalidate();
  }
  owner.setState(KVLSessionStateDisconnected);
}

void KVLSession::Implementation::showFailure(const kvl::Error& error, std::chrono::seconds delay) {
  const std::string retryTime = kvl::formatting::spelledOutDuration(delay.count());
  show({1, 0, kvl::translated("Reconnecting…"),
        kvl::format(kvl::translated("%@ – %@\nRetrying every %@"), error.localizedFailureReason(),
                    locationText(*notary.get(), error), retryTime)});
}

std::shared_ptr<kvl::DispatchQueue> KVLSession::Implementation::timerQueue() const {
  auto current = queue.get();
  return current == firstQueue ? frameworkQueue : current;
}

void KVLSession::Implementation::scheduleNotarisation(const std::shared_ptr<KVLSession>& owner,
                                                      std::chrono::seconds delay) {
  kvl::session::traceRetry(delay);
  timerQueue()->asyncAfter(delay, [anchor = timers.hold(owner), ticket = renewals.ticket()] {
    const auto held = anchor->get();
    if (held && held->implementation_->renewals.redeem(ticket)) held->enqueueNotarisation();
  });
}

void KVLSession::Implementation::reconnect(const std::shared_ptr<KVLSession>& owner,
                                           const std::optional<kvl::Error>& error) {
  setLastError(error);
  owner->disconnectAfterError();
  scheduleNotarisation(owner, environment->limits.reconnectionDelay);
}
