/// @file
/// Keys, certificates, identities and the evaluation of trust.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Date.h>
#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvl {

/// Result codes of the security operations, under the platform's names in `Error.h`; 0 is success.
using Status = std::int32_t;
/// The one status that is no failure.
inline constexpr Status kSuccess = 0;

namespace security {
struct KeyMaterial;
struct CertificateMaterial;
}  // namespace security

/// A public or private key. Immutable; usable on any thread. The memory of a private key is wiped
/// when its last reference goes. Equal keys that exist at the same time are one object.
class KVL_EXPORT Key {
 public:
  /// Which half of a pair.
  enum class Class : std::uint8_t {
    publicKey,   ///< what others may know
    privateKey,  ///< what signs
  };
  /// What kind of key.
  enum class Type : std::uint8_t {
    rsa,    ///< the only one that the framework makes
    other,  ///< every other one
  };

  /// For the security implementation only: hosts obtain keys from its operations.
  explicit Key(std::unique_ptr<const security::KeyMaterial> material) noexcept;
  ~Key();
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  /// Which half of its pair the key is.
  [[nodiscard]] Class keyClass() const noexcept;
  /// Whether the key is one for RSA.
  [[nodiscard]] Type type() const noexcept;
  /// Of the modulus, for RSA.
  [[nodiscard]] int sizeInBits() const noexcept;

 private:
  friend struct security::KeyMaterial;
  std::unique_ptr<const security::KeyMaterial> material_;
};
/// Null where there is no key.
using KeyRef = std::shared_ptr<const Key>;

/// An X.509 certificate (RFC 5280). Immutable; usable on any thread. It keeps its encoding only,
/// which the accessors read anew each time; equal certificates that exist at the same time are one
/// object.
class KVL_EXPORT Certificate {
 public:
  /// For the security implementation only.
  explicit Certificate(std::unique_ptr<const security::CertificateMaterial> material) noexcept;
  ~Certificate();
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;

  /// Subject and issuer as RFC 2253 text, UTF-8; empty for an empty name.
  [[nodiscard]] std::string subject() const;
  /// As `subject`, of who signed the certificate.
  [[nodiscard]] std::string issuer() const;
  /// The serial number in upper-case hexadecimal.
  [[nodiscard]] std::string serialNumber() const;
  /// The end of the validity period, or absent when the field cannot be read.
  [[nodiscard]] std::optional<Date> notValidAfter() const;
  /// As `notValidAfter`, of its beginning.
  [[nodiscard]] std::optional<Date> notValidBefore() const;
  /// The certificate's DER encoding.
  [[nodiscard]] Data encoded() const;
  /// The certificate as PEM text (RFC 7468), with a final line feed.
  [[nodiscard]] std::string pem() const;
  /// One line for logs: subject, issuer and expiry.
  [[nodiscard]] std::string description() const;

 private:
  friend struct security::CertificateMaterial;
  std::unique_ptr<const security::CertificateMaterial> material_;
};
/// Null where there is no certificate.
using CertificateRef = std::shared_ptr<const Certificate>;

/// A certificate joined to its private key. Immutable; usable on any thread.
class KVL_EXPORT Identity {
 public:
  /// Joins the two as they are: that the key belongs to the certificate is the caller's to know.
  Identity(CertificateRef certificate, KeyRef privateKey) noexcept
      : certificate_(std::move(certificate)), privateKey_(std::move(privateKey)) {}

  /// What is presented.
  [[nodiscard]] const CertificateRef& certificate() const noexcept { return certificate_; }
  /// What signs.
  [[nodiscard]] const KeyRef& privateKey() const noexcept { return privateKey_; }

 private:
  CertificateRef certificate_;
  KeyRef privateKey_;
};
/// Null where there is no identity.
using IdentityRef = std::shared_ptr<const Identity>;

/// Outcome of a trust evaluation, with the platform's numeric values.
enum class TrustResult : std::uint32_t {
  invalid = 0,             ///< not evaluated
  proceed = 1,             ///< trusted by an explicit decision of the user
  unspecified = 4,         ///< the chain ends at an anchor and nothing speaks against it
  recoverableFailure = 5,  ///< refused for a reason that a policy may waive: dates, name, root
  fatalFailure = 6,        ///< refused for good: a signature, key or purpose is wrong
  otherError = 7,          ///< the evaluation could not be carried out
};

/// `Trust::legacyResultCode` of a chain whose only fault is that it names another host.
inline constexpr std::int32_t CSSMERR_APPLETP_HOSTNAME_MISMATCH = -2147408896;

/// A server's certificates, to be evaluated against anchors. Used by one thread at a time.
///
/// Only the anchors that were set count: neither the system's nor the user's trust stores are ever
/// looked at, and without anchors nothing is trusted.
class KVL_EXPORT Trust {
 public:
  virtual ~Trust();
  /// A trust for a server's certificates in DER, its own first, reached at `host` (as a URL names
  /// it, an IPv6 address without brackets). For hosts that show pages of the service in a web view
  /// and pass its challenges on to `KVLSession`.
  [[nodiscard]] static std::shared_ptr<Trust> trustForServer(const std::vector<Data>& certificates,
                                                             std::string host);
  /// Replaces the anchors. An anchor may be a root, an intermediate or the server's own
  /// certificate. A null entry, or none at all, is refused with `errSecParam`.
  [[nodiscard]] virtual Status setAnchorCertificates(
      const std::vector<CertificateRef>& anchors) = 0;
  /// Evaluates and stores the outcome in `result`, which stays as it was on failure.
  [[nodiscard]] virtual Status evaluate(TrustResult& result) = 0;
  /// The detail of the last evaluation's refusal. Fails with `errSecParam` before an evaluation.
  [[nodiscard]] virtual Status legacyResultCode(std::int32_t& code) const = 0;
  /// What the last evaluation found, for the log; absent before an evaluation.
  [[nodiscard]] virtual std::optional<Dictionary> copyResult() const = 0;
  /// The certificates that the server sent, its own first.
  [[nodiscard]] virtual std::vector<CertificateRef> certificates() const = 0;
};
/// Null where there is no trust to evaluate.
using TrustRef = std::shared_ptr<Trust>;

}  // namespace kvl
