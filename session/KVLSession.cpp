// A session's making, requests and properties. Its notarisations, its event stream, its states and
// its end, and its answers to challenges have files of their own.
#include "session/Monitors.h"
#include "session/SessionImplementation.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>
#include <local/platform/Translation.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using EnvironmentRef = std::shared_ptr<const kvl::Environment>;
using kvl::session::notEstablished;
using kvl::session::SessionSection;
using kvl::session::StreamSection;

kvl::ProgressState connecting(const KVLNotary& notary) {
  const auto path = notary.path();
  return {1, 0, kvl::translated("Connecting…"),
          path ? kvl::format(kvl::translated("Connecting to \"%@\""), *path)
               : kvl::translated("Connecting to local notary socket")};
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
      progress(std::make_shared<kvl::Progress>(connecting(*notary.get()), observerQueue)) {
  notary.get()->addUser();
}

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
  auto& self = *implementation_;
  if (!self.home.isThisProcess()) return;
  self.waiters.close({kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled});
  if (const auto stream = self.eventStream.get()) stream->cancel();
  const kvl::MutexLock lock(self.notaryMutex);
  if (self.usesNotary) self.notary.get()->removeUser();
}

void KVLSession::disconnectAfterError() {
  auto& self = *implementation_;
  if (!self.home.isThisProcess()) return;
  const auto stream = self.eventStream.get();
  const StreamSection streamSection(stream);
  const SessionSection section(self.signature);
  if (self.gate.isClosed()) return;
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

std::shared_ptr<kvl::DataTask> KVLSession::requestPieces(const kvl::URLRequest& request,
                                                         kvl::BodyReceiver receiver) {
  auto& self = *implementation_;
  const auto make = [&](const auto& carrier, const kvl::URLRequest& copy) {
    receiver.end = [keeper = shared_from_this(), carrier = std::weak_ptr(carrier),
                    url = std::string(copy.urlText()), end = std::move(receiver.end)](
                       const auto& response, const std::optional<kvl::Error>& error) {
      keeper->implementation_->completeRequest(keeper, carrier, url, error);
      if (end) end(response, error);
    };
    return carrier->streamingTask(copy, std::move(receiver));
  };
  if (self.home.isThisProcess()) {
    if (auto task = self.start(request, make)) return task;
  }
  if (receiver.end) receiver.end(nullptr, notEstablished());
  return nullptr;
}

template <class Make>
std::shared_ptr<kvl::DataTask> KVLSession::Implementation::start(const kvl::URLRequest& request,
                                                                 const Make& make) {
  const SessionSection section(signature);
  const auto currentSignature = signature.get();
  const auto currentSession = session.get();
  if (!currentSignature || !currentSession || gate.isClosed()) return nullptr;
  auto task = make(currentSession, resolved(request, currentSignature->baseURL()));
  task->resume();
  return task;
}

std::shared_ptr<kvl::DataTask> KVLSession::Implementation::startTask(
    KVLSession& owner, const kvl::URLRequest& request, kvl::DataTaskHandler& completionHandler,
    std::unique_ptr<kvl::urlloading::BodyFraming> framing) {
  return start(request, [&](const auto& carrier, const kvl::URLRequest& copy) {
    if (completionHandler) {
      return carrier->dataTask(
          copy, [keeper = owner.shared_from_this(), carrier = std::weak_ptr(carrier),
                 url = std::string(copy.urlText()), handler = std::move(completionHandler)](
                    std::optional<kvl::Data> data, kvl::URLResponseRef response,
                    std::optional<kvl::Error> error) {
            keeper->implementation_->completeRequest(keeper, carrier, url, error);
            handler(std::move(data), std::move(response), std::move(error));
          });
    }
    auto task = carrier->dataTask(copy);
    if (framing) eventHold.add(task);
    kvl::urlloading::setBodyFraming(*task, std::move(framing));
    return task;
  });
}

void KVLSession::Implementation::completeRequest(const std::shared_ptr<KVLSession>& owner,
                                                 const std::weak_ptr<kvl::URLSession>& carrier,
                                                 const std::string& url,
                                                 const std::optional<kvl::Error>& error) {
  if (!error || gate.isClosed()) return;
  kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "error from request: %@", url);
  if (!isNotarisationError(error)) return;
  // No notarisation completes meanwhile and puts another HTTPS session object in its place.
  const StreamSection section(eventStream.get());
  if (isReplaced(carrier.lock().get())) return;
  kvl::log(kvl::LogCategory::session, kvl::LogLevel::warning,
           "notarisation error from request; enqueuing reconnection");
  reconnect(owner, error);
}

bool KVLSession::Implementation::isReplaced(const kvl::URLSession* carrier) const {
  const auto current = session.get();
  return current && current.get() != carrier;
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

std::shared_ptr<KVLNotary> KVLSession::notary() const {
  return implementation_->notary.get();
}
void KVLSession::setNotary(std::shared_ptr<KVLNotary> notary) {
  auto& self = *implementation_;
  std::shared_ptr<KVLNotary> before;  // may go here, once the lock has been given back
  const kvl::MutexLock lock(self.notaryMutex);
  if (self.usesNotary) notary->addUser();
  before = self.notary.exchange(std::move(notary));
  if (self.usesNotary) before->removeUser();
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
  implementation_->draining.add(implementation_->session.exchange(std::move(session)));
}
