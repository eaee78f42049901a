#include "notary/NotaryReply.h"

#include "platform/security/KeyStore.h"
#include "platform/security/Operations.h"

#include <local/platform/Log.h>

#include <utility>

namespace kvl::notary {
namespace {

// Reported in the POSIX domain, so that the session counts it as recoverable.
constexpr std::int64_t kNoUsableURL = -1002;

Error noUsableURL(const Dictionary& reply) {
  const Value* urls = reply.find(NotaryResponseKeyURL);
  const bool missing = urls == nullptr || urls->isNull();
  return {NSPOSIXErrorDomain, kNoUsableURL, {{"urls", missing ? Value("null") : *urls}}};
}

// A certificate that cannot be read costs the signature its identity, not the notarisation.
CertificateRef clientCertificate(const Dictionary& reply) {
  CertificateRef certificate;
  const auto text = reply[NotaryResponseKeyCertificate].string();
  if (const auto error = KVLNotary::decode(text, &certificate)) {
    log("client certificate error: %@", *error);
  }
  return certificate;
}

IdentityRef identityFor(const CertificateRef& certificate) {
  if (!certificate) return nullptr;
  IdentityRef identity;
  const Status status = security::SecIdentityCreateWithCertificate(*security::defaultKeyStore(),
                                                                   certificate, identity);
  if (status == kSuccess) return identity;
  log("client identity error: %@", Error(NSPOSIXErrorDomain, status));
  return nullptr;
}

}  // namespace

void handleReply(const std::optional<Dictionary>& received, const std::optional<Error>& error,
                 const KVLNotary::CompletionHandler& completionHandler) {
  if (error) return completionHandler(nullptr, error);
  const Dictionary reply = received.value_or(Dictionary());
  auto baseURL = KVLNotary::baseURL(reply[NotaryResponseKeyURL]);
  if (!baseURL) return completionHandler(nullptr, noUsableURL(reply));
  CertificateRef anchor;
  if (auto failure = KVLNotary::decode(reply[NotaryResponseKeyAnchor].string(), &anchor)) {
    return completionHandler(nullptr, std::move(failure));
  }
  auto client = clientCertificate(reply);
  auto signature = std::make_shared<KVLNotarySignature>();
  signature->setBaseURL(std::move(baseURL));
  signature->setAnchor(std::move(anchor));
  signature->setIdentity(identityFor(client));
  signature->setClient(std::move(client));
  log("%@", signature);
  completionHandler(std::move(signature), std::nullopt);
}

}  // namespace kvl::notary
