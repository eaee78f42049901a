// Answers to authentication challenges.
#include "session/Monitors.h"
#include "session/SessionImplementation.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>
#include <local/platform/SystemVersion.h>

#include <algorithm>
#include <array>
#include <utility>

namespace {

using kvl::ChallengeDisposition;
using kvl::ChallengeHandler;

constexpr std::array<std::string_view, 3> kLoopbackNames = {"localhost", "::1", "127.0.0.1"};

// Before 14.0 a certificate that chains to the anchor but names another host is accepted on the
// loopback interface.
bool isLegacyHostMismatch(const kvl::Trust& trust, std::string_view host) {
  if (kvl::isSystemVersionAtLeast(14, 0)) return false;
  if (std::ranges::find(kLoopbackNames, host) == kLoopbackNames.end()) return false;
  std::int32_t code = 0;
  return trust.legacyResultCode(code) == kvl::kSuccess &&
         code == kvl::CSSMERR_APPLETP_HOSTNAME_MISMATCH;
}

void refuse(const ChallengeHandler& answer) {
  answer(ChallengeDisposition::rejectProtectionSpace, nullptr);
}

void accept(const kvl::TrustRef& trust, const ChallengeHandler& answer) {
  answer(ChallengeDisposition::useCredential, kvl::Credential::credentialForTrust(trust));
}

void evaluate(const kvl::TrustRef& trust, std::string_view host, const ChallengeHandler& answer) {
  auto result = kvl::TrustResult::invalid;
  // An evaluation that fails is refused at once and then once more below.
  if (trust->evaluate(result) != kvl::kSuccess) refuse(answer);
  if (result == kvl::TrustResult::proceed || result == kvl::TrustResult::unspecified) {
    return accept(trust, answer);
  }
  if (result == kvl::TrustResult::recoverableFailure && isLegacyHostMismatch(*trust, host)) {
    kvl::log(kvl::LogCategory::session, kvl::LogLevel::warning,
             "legacy: accepting despite hostname mismatch");
    return accept(trust, answer);
  }
  if (const auto details = trust->copyResult())
    kvl::log(kvl::LogCategory::session, kvl::LogLevel::error, "untrusted certificate: %@",
             *details);
  refuse(answer);
}

// Whether the trust now has the current signature's anchor for its only one.
bool pinToAnchor(kvl::Trust& trust,
                 const kvl::Atomic<std::shared_ptr<KVLNotarySignature>>& current) {
  const kvl::session::SessionSection section(current);
  const auto signature = current.get();
  return signature && trust.setAnchorCertificates({signature->anchor()}) == kvl::kSuccess;
}

kvl::CredentialRef currentCredentials(
    const kvl::Atomic<std::shared_ptr<KVLNotarySignature>>& current) {
  const kvl::session::SessionSection section(current);
  const auto signature = current.get();
  return signature ? signature->credentials() : nullptr;
}

}  // namespace

void KVLSession::didReceiveAuthenticationChallenge(const kvl::Challenge& challenge,
                                                   const ChallengeHandler& completionHandler) {
  const auto& space = challenge.protectionSpace;
  if (space.authenticationMethod == kvl::NSURLAuthenticationMethodServerTrust) {
    const auto& trust = space.serverTrust;
    if (!trust || !pinToAnchor(*trust, implementation_->signature)) {
      return refuse(completionHandler);
    }
    return evaluate(trust, space.host, completionHandler);
  }
  if (space.authenticationMethod != kvl::NSURLAuthenticationMethodClientCertificate) {
    return completionHandler(ChallengeDisposition::performDefaultHandling, nullptr);
  }
  if (auto credential = currentCredentials(implementation_->signature)) {
    return completionHandler(ChallengeDisposition::useCredential, std::move(credential));
  }
  kvl::log(kvl::LogCategory::session, kvl::LogLevel::warning,
           "\u2026no client certificate available for authentication");
  refuse(completionHandler);
}

void KVLSession::didReceiveAuthenticationChallenge(const void* /*webView*/,
                                                   const kvl::Challenge& challenge,
                                                   const ChallengeHandler& completionHandler) {
  didReceiveAuthenticationChallenge(challenge, completionHandler);
}

void KVLSession::didReceiveChallenge(kvl::URLSession& /*session*/, const kvl::Challenge& challenge,
                                     ChallengeHandler completionHandler) {
  didReceiveAuthenticationChallenge(challenge, completionHandler);
}
