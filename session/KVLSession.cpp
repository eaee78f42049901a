#include "eventstream/KVLEventStreamStateImplementation.h"
#include "session/MonitorSection.h"
#include "session/SessionImplementation.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>

#include <utility>

namespace {

kvl::ProgressState connecting(const KVLNotary& notary) {
  const auto path = notary.path();
  return {1, 0, "Connecting\u2026",
          path ? kvl::format("Connecting to \"%@\"", *path) : "Connecting to local notary socket"};
}

}  // namespace

KVLSessionDelegate::~KVLSessionDelegate() = default;

KVLSession::Implementation::Implementation(std::shared_ptr<KVLNotary> initialNotary,
                                           std::weak_ptr<KVLSessionDelegate> initialDelegate)
    : notary(std::move(initialNotary)),
      delegate(std::move(initialDelegate)),
      eventStream(std::make_shared<KVLEventStreamState>()),
      queue(kvl::DispatchQueue::concurrent("korvale.local.session")),
      configuration(kvl::URLSessionConfiguration::ephemeral()),
      observerQueue(kvl::DispatchQueue::serial("korvale.local.session.observers")),
      progress(std::make_shared<kvl::Progress>(connecting(*notary.get()), observerQueue)) {}

std::shared_ptr<KVLSession> KVLSession::sessionWithNotary(
    std::shared_ptr<KVLNotary> notary, std::weak_ptr<KVLSessionDelegate> delegate) {
  auto session = std::make_shared<KVLSession>(Private{}, std::move(notary), std::move(delegate));
  session->enqueueNotarisation();
  return session;
}

KVLSession::KVLSession(Private, std::shared_ptr<KVLNotary> notary,
                       std::weak_ptr<KVLSessionDelegate> delegate)
    : implementation_(std::make_unique<Implementation>(
          notary ? std::move(notary) : std::make_shared<KVLNotary>(), std::move(delegate))) {}

// A running stream would otherwise keep its HTTPS session object, and nobody could end it any more.
KVLSession::~KVLSession() {
  if (const auto stream = implementation_->eventStream.get()) stream->cancel();
}

void KVLSession::disconnectAfterError() {
  auto& self = *implementation_;
  const auto stream = self.eventStream.get();
  std::lock_guard streamLock(stream->implementation().monitor);
  const kvl::session::MonitorSection section(self.signature);
  stream->cancel();
  self.signature.set(nullptr);
  self.disestablish(*this);
}
