/// @file
/// Credentials and authentication challenges.
#pragma once

#include <local/platform/Security.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl {

/// What answers a challenge: a client identity, or the trust that was accepted. Immutable.
class KVL_EXPORT Credential {
 public:
  /// How long a credential is remembered.
  enum class Persistence : std::uint8_t {
    none,  ///< not at all: credentials are never stored
  };

  /// An identity and the certificates that are presented with its own.
  Credential(IdentityRef identity, std::vector<CertificateRef> certificates,
             Persistence persistence)
      : identity_(std::move(identity)),
        certificates_(std::move(certificates)),
        persistence_(persistence) {}
  /// The answer to a challenge for server trust.
  explicit Credential(TrustRef trust) : trust_(std::move(trust)) {}

  /// `credentialForTrust:`
  [[nodiscard]] static std::shared_ptr<const Credential> credentialForTrust(TrustRef trust) {
    return std::make_shared<const Credential>(std::move(trust));
  }

  /// The client's identity; null in a credential of a trust.
  [[nodiscard]] const IdentityRef& identity() const noexcept { return identity_; }
  /// Certificates that are presented with the identity's own.
  [[nodiscard]] const std::vector<CertificateRef>& certificates() const noexcept {
    return certificates_;
  }
  /// `none`.
  [[nodiscard]] Persistence persistence() const noexcept { return persistence_; }
  /// The accepted trust; null in a credential of an identity.
  [[nodiscard]] const TrustRef& trust() const noexcept { return trust_; }

 private:
  IdentityRef identity_;
  std::vector<CertificateRef> certificates_;
  Persistence persistence_ = Persistence::none;
  TrustRef trust_;
};
/// Null where there is no credential.
using CredentialRef = std::shared_ptr<const Credential>;

/// @name Authentication methods
/// @{

/// The server has shown its certificates, and waits to be trusted.
inline constexpr std::string_view NSURLAuthenticationMethodServerTrust =
    "NSURLAuthenticationMethodServerTrust";
/// The server asks for a certificate of the client's.
inline constexpr std::string_view NSURLAuthenticationMethodClientCertificate =
    "NSURLAuthenticationMethodClientCertificate";
/// User name and password; the framework answers it with default handling.
inline constexpr std::string_view NSURLAuthenticationMethodHTTPBasic =
    "NSURLAuthenticationMethodHTTPBasic";
/// The same over a digest of the password.
inline constexpr std::string_view NSURLAuthenticationMethodHTTPDigest =
    "NSURLAuthenticationMethodHTTPDigest";
/// @}

/// Where a challenge comes from.
struct ProtectionSpace {
  std::string host;                  ///< as the URL names it, an IPv6 address without brackets
  std::uint16_t port = 0;            ///< as the URL has it, else the scheme's own
  std::string authenticationMethod;  ///< one of the names above, or another one
  TrustRef serverTrust;              ///< set for server trust only
};

/// A request for authentication.
struct Challenge {
  ProtectionSpace protectionSpace;  ///< who asks, and how
};

/// Answers to a challenge, with the platform's numeric values.
enum class ChallengeDisposition : std::int64_t {
  useCredential = 0,           ///< with the credential that goes with the answer
  performDefaultHandling = 1,  ///< refusal, of server trust and of client certificates
  cancelChallenge = 2,         ///< refusal
  rejectProtectionSpace = 3,   ///< refusal
};

/// Takes the answer. May be called from any thread; the first call counts, later ones are ignored.
using ChallengeHandler = std::function<void(ChallengeDisposition, CredentialRef)>;

}  // namespace kvl
