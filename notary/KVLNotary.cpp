// The notary client: what it asks the notary service, and what it makes of the reply.
#include "notary/Keychain.h"
#include "notary/NotaryKeys.h"
#include "notary/ProcessReferences.h"
#include "platform/core/NoDestructor.h"
#include "platform/environment/Environment.h"
#include "platform/security/Operations.h"

#include <local/KVLNotary.h>
#include <local/platform/Atomic.h>
#include <local/platform/HostApplication.h>
#include <local/platform/Log.h>
#include <local/platform/SystemVersion.h>

#include <cstdlib>
#include <utility>

constinit std::string_view NotaryRequestKeyCertificateSigningRequest = "csr";
constinit std::string_view NotaryResponseKeyURL = "url";
constinit std::string_view NotaryResponseKeyAnchor = "anchor";
constinit std::string_view NotaryResponseKeyCertificate = "certificate";

using EnvironmentRef = std::shared_ptr<const kvl::Environment>;

struct KVLNotary::Implementation {
  explicit Implementation(EnvironmentRef given)
      : environment(std::move(given)),
        keys(std::make_shared<kvl::notary::NotaryKeys>(environment)) {}

  const EnvironmentRef environment;
  kvl::Atomic<std::optional<std::string>> path;
  const std::shared_ptr<kvl::notary::NotaryKeys> keys;
};

namespace {

constexpr const char* kServiceName = "korvale.vandrel.local.notary";
constexpr const char* kPathVariable = "korvale_vandrel_notary";
constexpr const char* kMinimumVariable = "korvale_vandrel_notary_minimum";

// An empty variable counts as unset.
std::optional<std::string> variable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

void start(kvl::ipc::ServiceConnection& connection) {
  if (kvl::isSystemVersionAtLeast(11, 0)) {
    connection.activate();
  } else {
    connection.resume();
  }
}

void close(kvl::ipc::ServiceConnection& connection) {
  connection.suspend();
  connection.invalidate();
}

using ConnectionRef = std::shared_ptr<kvl::ipc::ServiceConnection>;
// Runs on the reply thread. The connection is to be closed once the outcome has been dealt with.
using EndHandler = std::function<void(std::optional<kvl::Dictionary>, std::optional<kvl::Error>,
                                      const ConnectionRef&)>;

// Sends over a connection of its own.
void exchange(const kvl::Environment& environment, const std::optional<std::string>& path,
              const kvl::Dictionary& request, EndHandler ended) {
  const ConnectionRef connection = environment.serviceConnection(kServiceName);
  connection->setInterruptionHandler(
      [] { kvl::log(kvl::LogCategory::notary, kvl::LogLevel::warning, "xpc notary interrupted"); });
  connection->setInvalidationHandler(
      [] { kvl::log(kvl::LogCategory::notary, kvl::LogLevel::debug, "xpc notary invalidated"); });
  start(*connection);
  // Both handlers share the caller's; the connection lets go of them once one has run.
  const auto shared = std::make_shared<const EndHandler>(std::move(ended));
  connection->sendNotary(
      path, request,
      [connection, shared](const kvl::Error& error) {
        kvl::log(kvl::LogCategory::notary, kvl::LogLevel::error, "xpc error: %@", error);
        (*shared)(std::nullopt, error, connection);
      },
      [connection, shared](std::optional<kvl::Dictionary> dictionary,
                           std::optional<kvl::Error> error) {
        (*shared)(std::move(dictionary), std::move(error), connection);
      });
}

// Reported in the POSIX domain, so that the session counts it as recoverable.
constexpr std::int64_t kNoUsableURL = -1002;

kvl::Error noUsableURL(const kvl::Dictionary& reply) {
  const kvl::Value* urls = reply.find(NotaryResponseKeyURL);
  const bool missing = urls == nullptr || urls->isNull();
  return {kvl::NSPOSIXErrorDomain, kNoUsableURL, {{"urls", missing ? kvl::Value("null") : *urls}}};
}

// A certificate that cannot be read costs the signature its identity, not the notarisation.
kvl::CertificateRef clientCertificate(const kvl::Dictionary& reply) {
  kvl::CertificateRef certificate;
  const auto text = reply[NotaryResponseKeyCertificate].string();
  if (const auto error = KVLNotary::decode(text, &certificate)) {
    kvl::log(kvl::LogCategory::notary, kvl::LogLevel::error, "client certificate error: %@",
             *error);
  }
  return certificate;
}

kvl::IdentityRef identityFor(const kvl::CertificateRef& certificate,
                             kvl::security::KeyStore& store) {
  kvl::IdentityRef identity;
  const kvl::Status status = kvl::security::SecIdentityCreateWithCertificate(
      store, certificate, identity, kvl::hostIdentifier().value_or(std::string()));
  if (status == kvl::kSuccess) return identity;
  kvl::log(kvl::LogCategory::notary, kvl::LogLevel::error, "client identity error: %@",
           kvl::Error(kvl::NSPOSIXErrorDomain, status));
  return nullptr;
}

// The host's handler and the connection that is closed after it. Moved from step to step, never
// copied: whatever the host's handler holds must go on the reply thread.
class Completion {
 public:
  Completion(KVLNotary::CompletionHandler handler, ConnectionRef connection)
      : handler_(std::move(handler)), connection_(std::move(connection)) {}
  // A function that was moved away may still hold what it held.
  Completion(Completion&& other) noexcept
      : handler_(std::exchange(other.handler_, nullptr)),
        connection_(std::move(other.connection_)) {}
  Completion(const Completion&) = default;
  Completion& operator=(const Completion&) = delete;
  ~Completion() = default;

  // Both on the reply thread, and one of them once.
  void succeed(const std::shared_ptr<KVLNotarySignature>& signature) {
    kvl::log(kvl::LogCategory::notary, kvl::LogLevel::info, "%@", signature);
    end(signature, std::nullopt);
  }
  void fail(std::optional<kvl::Error> error) { end(nullptr, std::move(error)); }

  [[nodiscard]] kvl::ipc::ServiceConnection& connection() const { return *connection_; }

 private:
  void end(const std::shared_ptr<KVLNotarySignature>& signature, std::optional<kvl::Error> error) {
    handler_(signature, std::move(error));
    close(*connection_);
  }

  KVLNotary::CompletionHandler handler_;
  ConnectionRef connection_;
};

// Completes, on the reply thread, with `signature` and the identity of its certificate. The key
// store may take its time to find it, so it is asked on the lookup thread: meanwhile the reply
// thread serves other connections. Everything is moved along, so that the lookup thread holds
// nothing any more once the reply thread goes on.
void completeAfterLookup(std::shared_ptr<KVLNotarySignature> signature, kvl::CertificateRef client,
                         Completion completion, const EnvironmentRef& environment) {
  environment->lookupQueue()->async([signature = std::move(signature), client = std::move(client),
                                     completion = std::move(completion), environment]() mutable {
    auto identity = identityFor(client, *environment->keyStore());
    auto& connection = completion.connection();
    connection.post([signature = std::move(signature), client = std::move(client),
                     completion = std::move(completion), identity = std::move(identity)]() mutable {
      signature->setIdentity(std::move(identity));
      signature->setClient(std::move(client));
      completion.succeed(signature);
    });
  });
}

// Completes, on the reply thread, with the signature that the reply describes or with an error.
void completeWithReply(const std::optional<kvl::Dictionary>& received,
                       const std::optional<kvl::Error>& error, Completion completion,
                       const EnvironmentRef& environment) {
  if (error) return completion.fail(error);
  const kvl::Dictionary reply = received.value_or(kvl::Dictionary());
  auto baseURL = KVLNotary::baseURL(reply[NotaryResponseKeyURL]);
  if (!baseURL) return completion.fail(noUsableURL(reply));
  kvl::CertificateRef anchor;
  if (auto failure = KVLNotary::decode(reply[NotaryResponseKeyAnchor].string(), &anchor)) {
    return completion.fail(std::move(failure));
  }
  auto client = clientCertificate(reply);
  auto signature = std::make_shared<KVLNotarySignature>(environment);
  signature->setBaseURL(std::move(baseURL));
  signature->setAnchor(std::move(anchor));
  if (!client) return completion.succeed(signature);
  completeAfterLookup(std::move(signature), std::move(client), std::move(completion), environment);
}

void notarise(const std::optional<std::string>& path,
              const std::optional<std::string>& signingRequest,
              KVLNotary::CompletionHandler handler, const EnvironmentRef& environment) {
  kvl::Dictionary request;
  if (variable(kMinimumVariable)) {
    kvl::log(kvl::LogCategory::notary, kvl::LogLevel::info, "notary minimum");
  } else if (signingRequest) {
    request.set(NotaryRequestKeyCertificateSigningRequest, *signingRequest);
  }
  exchange(*environment, path, request,
           [handler = std::move(handler), environment](const std::optional<kvl::Dictionary>& reply,
                                                       const std::optional<kvl::Error>& error,
                                                       const ConnectionRef& connection) mutable {
             completeWithReply(reply, error,
                               Completion(std::exchange(handler, nullptr), connection),
                               environment);
           });
}

// The keys have gone before they were there. No connection is made for that.
void refuse(KVLNotary::CompletionHandler handler, const kvl::Environment& environment) {
  environment.serviceConnection(kServiceName)->post([handler = std::move(handler)]() mutable {
    std::exchange(handler, nullptr)(nullptr,
                                    kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  });
}

}  // namespace

// Never destroyed: a notary that deletes its keys while the process exits could block the exit.
// Its keys are made by whoever asks for it, in his way, and nobody waits for them in here.
const std::shared_ptr<KVLNotary>& KVLNotary::processNotary() {
  static const kvl::NoDestructor<std::shared_ptr<KVLNotary>> shared([] {
    auto path = variable(kPathVariable);
    if (path) kvl::log(kvl::LogCategory::notary, kvl::LogLevel::info, "notary: %@", *path);
    return std::shared_ptr<KVLNotary>(
        new KVLNotary(KeysLater{}, std::move(path), kvl::Environment::process()));
  }());
  return *shared;
}

std::shared_ptr<KVLNotary> KVLNotary::sharedNotary() {
  processNotary()->implementation_->keys->make();
  return processNotary();
}

std::shared_ptr<KVLNotary> KVLNotary::sharedNotaryInBackground() {
  processNotary()->implementation_->keys->makeInBackground();
  return processNotary();
}

std::shared_ptr<KVLNotary> KVLNotary::notaryInBackground(std::optional<std::string> path,
                                                         EnvironmentRef environment) {
  const std::shared_ptr<KVLNotary> notary(
      new KVLNotary(KeysLater{}, std::move(path), std::move(environment)));
  notary->implementation_->keys->makeInBackground();
  return notary;
}

std::shared_ptr<KVLNotary> KVLNotary::notaryWithPath(std::optional<std::string> path) {
  return std::make_shared<KVLNotary>(std::move(path));
}

KVLNotary::KVLNotary() : KVLNotary(std::nullopt) {}

KVLNotary::KVLNotary(std::optional<std::string> path)
    : KVLNotary(std::move(path), kvl::Environment::process()) {}

KVLNotary::KVLNotary(std::optional<std::string> path, EnvironmentRef environment)
    : KVLNotary(KeysLater{}, std::move(path), std::move(environment)) {
  implementation_->keys->make();
}

KVLNotary::KVLNotary(KeysLater, std::optional<std::string> path, EnvironmentRef environment)
    : implementation_(std::make_unique<Implementation>(std::move(environment))) {
  if (path) setPath(std::move(path));
}

KVLNotary::KVLNotary(WithoutKeys)
    : implementation_(std::make_unique<Implementation>(kvl::Environment::process())) {
  implementation_->keys->doWithout();
}

KVLNotary::~KVLNotary() {
  implementation_->keys->close();
}

bool KVLNotary::hasKeys() const {
  return privateKey() && pemCertificateSigningRequest();
}

void KVLNotary::addUser() {
  implementation_->keys->addUser();
}
void KVLNotary::removeUser() {
  implementation_->keys->removeUser();
}
void KVLNotary::endUser(std::function<void(std::optional<kvl::Error>)> ended) {
  implementation_->keys->endUser(std::move(ended));
}

void KVLNotary::notariseWithCompletionHandler(CompletionHandler completionHandler) {
  implementation_->keys->whenReady(
      [environment = implementation_->environment, asked = path(),
       handler = std::move(completionHandler)](const kvl::notary::NotaryKeys* keys) mutable {
        if (!keys) return refuse(std::exchange(handler, nullptr), *environment);
        notarise(asked, keys->request.get(), std::exchange(handler, nullptr), environment);
      });
}

void KVLNotary::sendNotary(const std::optional<std::string>& path, const kvl::Dictionary& request,
                           ReplyHandler reply) {
  exchange(
      *implementation_->environment, path, request,
      [reply = std::move(reply)](std::optional<kvl::Dictionary> dictionary,
                                 std::optional<kvl::Error> error, const ConnectionRef& connection) {
        reply(std::move(dictionary), std::move(error));
        close(*connection);
      });
}

std::optional<kvl::URL> KVLNotary::baseURL(const kvl::Value& urls) {
  for (const auto& element : urls.array().value_or(kvl::Array())) {
    const auto text = element.string();
    auto url = text ? kvl::URL::parse(*text) : std::nullopt;
    if (url && url->scheme() == "https" && !url->host().value_or("").empty()) return url;
  }
  return std::nullopt;
}

std::optional<kvl::Error> KVLNotary::decode(std::optional<std::string_view> text,
                                            kvl::CertificateRef* certificate) {
  if (!text || text->empty()) return std::nullopt;
  std::vector<kvl::CertificateRef> imported;
  const kvl::Status status = kvl::security::SecItemImportCertificates(*text, imported);
  if (status != kvl::kSuccess) return kvl::Error(kvl::NSPOSIXErrorDomain, status);
  if (!imported.empty() && certificate != nullptr) *certificate = std::move(imported.front());
  return std::nullopt;
}

std::optional<std::string> KVLNotary::path() const {
  return implementation_->path.get();
}
void KVLNotary::setPath(std::optional<std::string> path) {
  implementation_->path.set(std::move(path));
}

kvl::KeyRef KVLNotary::publicKey() const {
  return implementation_->keys->publicKey.get();
}
void KVLNotary::setPublicKey(kvl::KeyRef key) {
  kvl::notary::keepForProcess(key);
  implementation_->keys->publicKey.set(std::move(key));
}

kvl::KeyRef KVLNotary::privateKey() const {
  return implementation_->keys->privateKey.get();
}
void KVLNotary::setPrivateKey(kvl::KeyRef key) {
  kvl::notary::keepForProcess(key);
  implementation_->keys->privateKey.set(std::move(key));
}

std::optional<std::string> KVLNotary::pemCertificateSigningRequest() const {
  return implementation_->keys->request.get();
}
void KVLNotary::setPemCertificateSigningRequest(std::optional<std::string> request) {
  implementation_->keys->request.set(std::move(request));
}

kvl::Dictionary KVLNotary::keyQuery() {
  return kvl::notary::keyQuery();
}

std::optional<kvl::Error> KVLNotary::createKeysPublic(kvl::KeyRef* publicKey,
                                                      kvl::KeyRef* privateKey) {
  return kvl::notary::createKeys(*kvl::Environment::process()->keyStore(), publicKey, privateKey);
}

std::optional<kvl::Error> KVLNotary::deleteKeys() {
  return kvl::notary::deleteKeys(*kvl::Environment::process()->keyStore());
}
