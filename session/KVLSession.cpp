// A session's life, requests, event stream and properties. Its notarisations and its answers to
// challenges have files of their own.
#include "session/Monitors.h"
#include "session/SessionImplementation.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using EnvironmentRef = std::shared_ptr<const kvl::Environment>;
using kvl::session::DeliveryOrder;
using kvl::session::SessionSection;
using kvl::session::StreamSection;

kvl::ProgressState connecting(const KVLNotary& notary) {
  const auto path = notary.path();
  return {1, 0, "Connecting\u2026",
          path ? kvl::format("Connecting to \"%@\"", *path) : "Connecting to local notary socket"};
}

kvl::Error notEstablished() {
  return {kvl::NSURLErrorDomain,
          kvl::NSURLErrorUnknown,
          {{kvl::NSLocalizedDescriptionKey, "Notarised session is not established."}}};
}

std::shared_ptr<kvl::DataTask> refuse(const kvl::DataTaskHandler& completionHandler) {
  if (completionHandler) completionHandler(std::nullopt, nullptr, notEstablished());
  return nullptr;
}

// A request whose text is no URL stays as it is, and fails when it is started.
kvl::URLRequest resolved(kvl::URLRequest request, const std::optional<kvl::URL>& base) {
  if (request.url() && base) request.setURL(request.url()->resolvedAgainst(*base));
  return request;
}

// An idle time-out or a cancellation from outside: the stream is simply opened again.
bool restartsStream(const std::optional<kvl::Error>& error) {
  return error && (error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut) ||
                   error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
}

void logEnd(const std::optional<kvl::Error>& error) {
  if (!error) return;
  kvl::log(kvl::LogCategory::events, kvl::LogLevel::warning,
           error->domain() == kvl::NSURLErrorDomain
               ? "event stream closed with unexpected network error: %@"
               : "event stream closed with unexpected error: %@",
           *error);
}

constexpr std::array<std::pair<std::string_view, std::int64_t>, 4> kRecoverableErrors = {{
    {kvl::NSOSStatusErrorDomain, kvl::fnfErr},
    {kvl::NSCocoaErrorDomain, kvl::NSFileReadNoSuchFileError},
    {kvl::NSCocoaErrorDomain, kvl::NSFileReadUnknownError},
    {kvl::NSURLErrorDomain, kvl::NSURLErrorUnsupportedURL},
}};

constexpr std::array<std::int64_t, 8> kNotarisationErrors = {
    kvl::NSURLErrorSecureConnectionFailed,       kvl::NSURLErrorServerCertificateHasBadDate,
    kvl::NSURLErrorServerCertificateUntrusted,   kvl::NSURLErrorServerCertificateHasUnknownRoot,
    kvl::NSURLErrorServerCertificateNotYetValid, kvl::NSURLErrorClientCertificateRejected,
    kvl::NSURLErrorClientCertificateRequired,    kvl::NSURLErrorCannotLoadFromNetwork,
};

}  // namespace

KVLSessionDelegate::~KVLSessionDelegate() = default;

KVLSession::Implementation::Implementation(std::shared_ptr<KVLNotary> initialNotary,
                                           std::weak_ptr<KVLSessionDelegate> initialDelegate,
                                           EnvironmentRef givenEnvironment)
    : environment(std::move(givenEnvironment)),
      notary(std::move(initialNotary)),
      delegate(std::move(initialDelegate)),
      eventStream(std::make_shared<KVLEventStreamState>(environment)),
      queue(environment->concurrentQueue("korvale.local.session")),
      frameworkQueue(environment->frameworkQueue("korvale.local.session")),
      configuration(kvl::URLSessionConfiguration::ephemeral()),
      observerQueue(environment->serialQueue("korvale.local.session.observers")),
      progress(std::make_shared<kvl::Progress>(connecting(*notary.get()), observerQueue)) {}

std::shared_ptr<KVLSession> KVLSession::sessionWithNotary(
    std::shared_ptr<KVLNotary> notary, std::weak_ptr<KVLSessionDelegate> delegate) {
  return sessionWithNotary(std::move(notary), std::move(delegate), kvl::Environment::process());
}

std::shared_ptr<KVLSession> KVLSession::sessionWithNotary(
    std::shared_ptr<KVLNotary> notary, std::weak_ptr<KVLSessionDelegate> delegate,
    EnvironmentRef environment) {
  auto session = std::make_shared<KVLSession>(Private{}, std::move(notary), std::move(delegate),
                                              std::move(environment));
  session->enqueueNotarisation();
  return session;
}

KVLSession::KVLSession(Private tag, std::shared_ptr<KVLNotary> notary,
                       std::weak_ptr<KVLSessionDelegate> delegate)
    : KVLSession(tag, std::move(notary), std::move(delegate), kvl::Environment::process()) {}

KVLSession::KVLSession(Private, std::shared_ptr<KVLNotary> notary,
                       std::weak_ptr<KVLSessionDelegate> delegate, EnvironmentRef environment)
    : implementation_(std::make_unique<Implementation>(
          notary ? std::move(notary) : std::make_shared<KVLNotary>(std::nullopt, environment),
          std::move(delegate), environment)) {}

// A running stream would otherwise keep its HTTPS session object, and nobody could end it any more.
KVLSession::~KVLSession() {
  if (!implementation_->home.isThisProcess()) return;
  if (const auto stream = implementation_->eventStream.get()) stream->cancel();
}

void KVLSession::disconnectAfterError() {
  auto& self = *implementation_;
  if (!self.home.isThisProcess()) return;
  const auto stream = self.eventStream.get();
  const StreamSection streamSection(stream);
  const SessionSection section(self.signature);
  stream->cancel();
  self.signature.set(nullptr);
  self.disestablish(*this);
}

std::shared_ptr<kvl::DataTask> KVLSession::request(const kvl::URLRequest& request,
                                                   kvl::DataTaskHandler completionHandler) {
  if (!implementation_->home.isThisProcess()) return refuse(completionHandler);
  if (auto task = implementation_->startTask(*this, request, completionHandler)) return task;
  // Outside the section: the handler runs with no lock held.
  return refuse(completionHandler);
}

std::shared_ptr<kvl::DataTask> KVLSession::Implementation::startTask(
    KVLSession& owner, const kvl::URLRequest& request, kvl::DataTaskHandler& completionHandler,
    std::unique_ptr<kvl::urlloading::BodyFraming> framing) {
  const SessionSection section(signature);
  const auto currentSignature = signature.get();
  const auto currentSession = session.get();
  if (!currentSignature || !currentSession) return nullptr;
  const auto copy = resolved(request, currentSignature->baseURL());
  std::shared_ptr<kvl::DataTask> task;
  if (completionHandler) {
    task = currentSession->dataTask(
        copy, [keeper = owner.shared_from_this(), carrier = std::weak_ptr(currentSession),
               url = std::string(copy.urlText()), handler = std::move(completionHandler)](
                  std::optional<kvl::Data> data, kvl::URLResponseRef response,
                  std::optional<kvl::Error> error) {
          keeper->implementation_->completeRequest(keeper, carrier, url, error);
          handler(std::move(data), std::move(response), std::move(error));
        });
  } else {
    task = currentSession->dataTask(copy);
    kvl::urlloading::setBodyFraming(*task, std::move(framing));
  }
  task->resume();
  return task;
}

void KVLSession::Implementation::completeRequest(const std::shared_ptr<KVLSession>& owner,
                                                 const std::weak_ptr<kvl::URLSession>& carrier,
                                                 const std::string& url,
                                                 const std::optional<kvl::Error>& error) {
  if (!error) return;
  kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "error from request: %@", url);
  if (!isNotarisationError(error)) return;
  // No notarisation completes meanwhile and puts another HTTPS session object in its place.
  const StreamSection section(eventStream.get());
  if (isReplaced(carrier.lock().get())) return;
  kvl::log(kvl::LogCategory::session, kvl::LogLevel::warning,
           "notarisation error from request; enqueuing reconnection");
  reconnect(owner);
}

bool KVLSession::Implementation::isReplaced(const kvl::URLSession* carrier) const {
  const auto current = session.get();
  return current && current.get() != carrier;
}

void KVLSession::setEventStreamSource(const std::string& source) {
  auto& self = *implementation_;
  if (!self.home.isThisProcess()) return;
  const auto stream = self.eventStream.get();
  const StreamSection section(stream);
  if (self.eventSource.exchange(source) == source) return;
  stream->streamFromURL(source, *this);
}

void KVLSession::didReceiveData(kvl::URLSession& /*session*/,
                                const std::shared_ptr<kvl::DataTask>& task, const kvl::Data& data) {
  const auto stream = eventStream();
  if (!delegate() || data.empty()) return;
  std::vector<std::shared_ptr<KVLEvent>> events;
  std::optional<DeliveryOrder::Turn> turn;
  {
    // A stream that is opened meanwhile must not find the rest of this one's last line.
    const StreamSection section(stream);
    if (!stream->isEqualToTask(*task)) return;
    events = stream->read(data);
    if (events.empty()) return;
    turn.emplace(implementation_->deliveries);
  }
  turn->wait();
  if (const auto receiver = delegate()) receiver->eventStream(*this, events);
}

void KVLSession::didCompleteWithError(kvl::URLSession& session,
                                      const std::shared_ptr<kvl::DataTask>& task,
                                      const std::optional<kvl::Error>& error) {
  auto& self = *implementation_;
  const auto stream = eventStream();
  const StreamSection section(stream);
  if (!stream->isEqualToTask(*task)) return;
  if (restartsStream(error)) return self.reopenLater(shared_from_this(), stream, task);
  logEnd(error);
  // A stream that a renewal has left alone: only the identity before is refused.
  if (isNotarisationError(error) && self.isReplaced(&session)) {
    return self.reopenLater(shared_from_this(), stream, task);
  }
  self.reconnect(shared_from_this());
}

void KVLSession::Implementation::reopenLater(const std::shared_ptr<KVLSession>& owner,
                                             const std::shared_ptr<KVLEventStreamState>& stream,
                                             const std::shared_ptr<kvl::DataTask>& task) {
  timerQueue()->async(
      [owner, stream, task] { owner->implementation_->reopen(owner, stream, *task); });
}

void KVLSession::Implementation::reopen(const std::shared_ptr<KVLSession>& owner,
                                        const std::shared_ptr<KVLEventStreamState>& stream,
                                        const kvl::DataTask& task) {
  const StreamSection section(stream);
  // Somebody may have opened another stream in the meantime.
  if (!stream->isEqualToTask(task)) return;
  const auto current = session.get();
  if (current && current->isInvalidated()) {
    // Every stream would end there as this one has, at once and for ever.
    kvl::log(kvl::LogCategory::events, kvl::LogLevel::warning,
             "HTTPS session object is invalidated; enqueuing reconnection");
    return reconnect(owner);
  }
  stream->streamFromURL(task.originalRequest().urlText(), *owner);
}

bool KVLSession::isRecoverableError(const std::optional<kvl::Error>& error) {
  if (!error) return false;
  if (error->domain() == kvl::NSPOSIXErrorDomain) return true;
  return std::ranges::any_of(kRecoverableErrors, [&error](const auto& known) {
    return error->is(known.first, known.second);
  });
}

bool KVLSession::isNotarisationError(const std::optional<kvl::Error>& error) {
  return error && error->domain() == kvl::NSURLErrorDomain &&
         std::ranges::find(kNotarisationErrors, error->code()) != kNotarisationErrors.end();
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
  kvl::MutexLock lock(implementation_->stateMutex);
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
