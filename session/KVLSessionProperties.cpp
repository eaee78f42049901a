#include "session/SessionImplementation.h"

#include <local/KVLSession.h>

#include <utility>

std::shared_ptr<const kvl::Progress> KVLSession::progress() const {
  return implementation_->progress;
}

kvl::Observation KVLSession::observeState(std::function<void(KVLSessionState)> handler) const {
  std::lock_guard lock(implementation_->stateMutex);
  return implementation_->stateObservers.add(std::move(handler), implementation_->state);
}

KVLSessionState KVLSession::state() const {
  std::lock_guard lock(implementation_->stateMutex);
  return implementation_->state;
}

// Observers hear of states that are entered, not of those that merely stay.
void KVLSession::setState(KVLSessionState state) {
  std::lock_guard lock(implementation_->stateMutex);
  if (std::exchange(implementation_->state, state) == state) return;
  implementation_->stateObservers.notify(state);
}

std::shared_ptr<KVLNotary> KVLSession::notary() const {
  return implementation_->notary.get();
}
void KVLSession::setNotary(std::shared_ptr<KVLNotary> notary) {
  implementation_->notary.set(std::move(notary));
}

std::shared_ptr<KVLSessionDelegate> KVLSession::delegate() const {
  return implementation_->delegate.get().lock();
}
void KVLSession::setDelegate(std::weak_ptr<KVLSessionDelegate> delegate) {
  implementation_->delegate.set(std::move(delegate));
}

std::shared_ptr<KVLNotarySignature> KVLSession::signature() const {
  return implementation_->signature.get();
}
void KVLSession::setSignature(std::shared_ptr<KVLNotarySignature> signature) {
  implementation_->signature.set(std::move(signature));
}

bool KVLSession::awaitingSignature() const {
  return implementation_->awaitingSignature;
}
void KVLSession::setAwaitingSignature(bool awaiting) {
  implementation_->awaitingSignature = awaiting;
}

std::shared_ptr<KVLEventStreamState> KVLSession::eventStream() const {
  return implementation_->eventStream.get();
}
void KVLSession::setEventStream(std::shared_ptr<KVLEventStreamState> eventStream) {
  implementation_->eventStream.set(std::move(eventStream));
}

std::string KVLSession::eventSource() const {
  return implementation_->eventSource.get();
}
void KVLSession::setEventSource(std::string source) {
  implementation_->eventSource.set(std::move(source));
}

std::shared_ptr<kvl::DispatchQueue> KVLSession::queue() const {
  return implementation_->queue.get();
}
void KVLSession::setQueue(std::shared_ptr<kvl::DispatchQueue> queue) {
  implementation_->queue.set(std::move(queue));
}

kvl::URLSessionConfiguration KVLSession::configuration() const {
  return implementation_->configuration.get();
}
void KVLSession::setConfiguration(kvl::URLSessionConfiguration configuration) {
  implementation_->configuration.set(std::move(configuration));
}

std::shared_ptr<kvl::URLSession> KVLSession::session() const {
  return implementation_->session.get();
}
void KVLSession::setSession(std::shared_ptr<kvl::URLSession> session) {
  implementation_->session.set(std::move(session));
}
