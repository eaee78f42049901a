#include "notary/NotarySignatureImplementation.h"
#include "notary/ProcessReferences.h"
#include "platform/environment/Environment.h"
#include "platform/security/Operations.h"

#include <local/KVLNotarySignature.h>
#include <local/platform/Atomic.h>
#include <local/platform/Log.h>
#include <local/platform/SystemVersion.h>

#include <array>
#include <charconv>
#include <string_view>
#include <utility>

namespace kvl::notary {

std::optional<Date> notValidAfterFromValues(const std::optional<Dictionary>& values) {
  if (!values) return std::nullopt;
  const auto entry = (*values)[security::kSecOIDX509V1ValidityNotAfter].dictionary();
  const Value* value = entry ? entry->find(security::kSecPropertyKeyValue) : nullptr;
  if (value == nullptr) return std::nullopt;
  if (const auto date = value->date()) return date;
  if (const auto seconds = value->real()) return Date(*seconds);
  log(LogCategory::notary, LogLevel::warning, "unknown not-after: %@", *values);
  return std::nullopt;
}

}  // namespace kvl::notary

KVLNotarySignature::KVLNotarySignature() : KVLNotarySignature(kvl::Environment::process()) {}

KVLNotarySignature::KVLNotarySignature(std::shared_ptr<const kvl::Environment> environment)
    : implementation_(std::make_unique<Implementation>(std::move(environment))) {}

KVLNotarySignature::~KVLNotarySignature() = default;

std::optional<kvl::URL> KVLNotarySignature::baseURL() const {
  return implementation_->baseURL.get();
}
void KVLNotarySignature::setBaseURL(std::optional<kvl::URL> url) {
  implementation_->baseURL.set(std::move(url));
}

kvl::CertificateRef KVLNotarySignature::anchor() const {
  return implementation_->anchor.get();
}
void KVLNotarySignature::setAnchor(kvl::CertificateRef anchor) {
  kvl::notary::keepForProcess(anchor);
  implementation_->anchor.set(std::move(anchor));
}

kvl::IdentityRef KVLNotarySignature::identity() const {
  return implementation_->identity.get();
}
void KVLNotarySignature::setIdentity(kvl::IdentityRef identity) {
  kvl::notary::keepForProcess(identity);
  implementation_->identity.set(std::move(identity));
}

kvl::CertificateRef KVLNotarySignature::client() const {
  return implementation_->client.get();
}
void KVLNotarySignature::setClient(kvl::CertificateRef client) {
  kvl::notary::keepForProcess(client);
  implementation_->client.set(std::move(client));
}

std::optional<kvl::Date> KVLNotarySignature::certificateNotValidAfter(
    const kvl::CertificateRef& certificate) {
  if (!certificate) return std::nullopt;
  if (kvl::isSystemVersionAtLeast(15, 0)) return certificate->notValidAfter();
  return kvl::notary::notValidAfterFromValues(kvl::security::SecCertificateCopyValues(
      *certificate, kvl::security::kSecOIDX509V1ValidityNotAfter));
}

std::optional<kvl::Date> KVLNotarySignature::expires() const {
  if (const auto date = certificateNotValidAfter(client())) return date;
  return certificateNotValidAfter(anchor());
}

kvl::CredentialRef KVLNotarySignature::credentials() const {
  auto presented = identity();
  if (!presented) return nullptr;
  return std::make_shared<const kvl::Credential>(std::move(presented), std::vector{client()},
                                                 kvl::Credential::Persistence::none);
}

std::string KVLNotarySignature::description() const {
  const auto end = expires();
  // Not printf: its decimal point is the user's locale's.
  std::array<char, 512> digits{};
  const auto [last, error] =
      std::to_chars(digits.data(), digits.data() + digits.size(),
                    end ? end->secondsSince(implementation_->environment->now()) : 0.0,
                    std::chars_format::fixed, 2);
  const std::string_view remaining(digits.data(), last);
  return kvl::format("notary signature valid until %@ (%.2lf seconds)", end, remaining);
}
