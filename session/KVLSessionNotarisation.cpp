// The notarisation loop.
#include "eventstream/KVLEventStreamStateImplementation.h"
#include "session/MonitorSection.h"
#include "session/RenewalDelay.h"
#include "session/SessionImplementation.h"

#include <local/KVLEncodingLocale.h>
#include <local/KVLSession.h>
#include <local/platform/Log.h>

#include <chrono>
#include <utility>

namespace {

// Where the notary is, for the user: its path, else the file that the error names.
std::string locationText(const KVLNotary& notary, const kvl::Error& error) {
  if (const auto path = notary.path()) return *path;
  const kvl::Value& file = error.userInfo()[kvl::NSFilePathErrorKey];
  return file.isNull() ? std::string(kvl::kNullText) : file.description();
}

}  // namespace

void KVLSession::enqueueNotarisation() {
  auto& self = *implementation_;
  {
    const kvl::session::MonitorSection section(self.signature);
    if (self.awaitingSignature.exchange(true)) return;
  }
  self.notary.get()->notariseWithCompletionHandler(
      [session = shared_from_this()](std::shared_ptr<KVLNotarySignature> signature,
                                     const std::optional<kvl::Error>& error) {
        session->implementation_->completeNotarisation(session, std::move(signature), error);
      });
}

void KVLSession::Implementation::completeNotarisation(const std::shared_ptr<KVLSession>& owner,
                                                      std::shared_ptr<KVLNotarySignature> received,
                                                      const std::optional<kvl::Error>& error) {
  {
    const auto stream = eventStream.get();
    std::lock_guard streamLock(stream->implementation().monitor);
    const kvl::session::MonitorSection section(signature);
    // Whoever meets the new signature waits until all that belongs to it is in place.
    const kvl::session::MonitorSection newSection(received);
    awaitingSignature = false;
    signature.set(received);
    if (received) {
      establish(*owner, *received, *stream);
    } else {
      disestablish(*owner);
    }
  }
  std::int64_t delay = kvl::session::kDefaultDelay;
  if (error) {
    kvl::log("notarisation error: %@", *error);
    const bool recoverable = isRecoverableError(error);
    if (recoverable) delay = kvl::session::kRecoverableDelay;
    owner->setState(recoverable ? KVLSessionStateRecovering : KVLSessionStateDisconnected);
    showFailure(*error, delay);
  } else if (received) {
    delay = kvl::session::renewalDelay(received->expires(), kvl::Date::now());
  }
  scheduleNotarisation(owner, delay);
}

// The HTTPS session object before is only let go, so that its running tasks may finish.
void KVLSession::Implementation::establish(KVLSession& owner, const KVLNotarySignature& received,
                                           KVLEventStreamState& stream) {
  session.set(kvl::URLSession::create(configuration.get(), owner.weak_from_this()));
  owner.setState(KVLSessionStateEstablished);
  progress->update({1, 1, "Established", kvl::format("Notarised for \"%@\"", received.baseURL())});
  stream.streamFromURL(eventSource.get(), owner);
}

void KVLSession::Implementation::disestablish(KVLSession& owner) {
  if (const auto closing = session.exchange(nullptr)) closing->finishTasksAndInvalidate();
  owner.setState(KVLSessionStateDisconnected);
}

void KVLSession::Implementation::showFailure(const kvl::Error& error, std::int64_t delay) {
  progress->update({1, 0, "Reconnecting\u2026",
                    kvl::format("%@ \u2013 %@\nRetrying every %@", error.localizedFailureReason(),
                                locationText(*notary.get(), error), KVLEncoding::duration(delay))});
}

void KVLSession::Implementation::scheduleNotarisation(const std::shared_ptr<KVLSession>& owner,
                                                      std::int64_t delay) {
  queue.get()->asyncAfter(std::chrono::seconds(delay), [owner, ticket = renewals.ticket()] {
    if (owner->implementation_->renewals.redeem(ticket)) owner->enqueueNotarisation();
  });
}

void KVLSession::Implementation::reconnect(const std::shared_ptr<KVLSession>& owner) {
  owner->disconnectAfterError();
  scheduleNotarisation(owner, kvl::session::kReconnectionDelay);
}
