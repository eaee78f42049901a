/// @file
/// The result of a notarisation.
#pragma once

#include <local/platform/Credential.h>
#include <local/platform/Date.h>
#include <local/platform/Export.h>
#include <local/platform/Security.h>
#include <local/platform/URL.h>

#include <memory>
#include <optional>
#include <string>

namespace kvl {
struct Environment;
namespace session {
class SessionSection;
}
}  // namespace kvl

/// What one successful notarisation brings: where the service listens, whom to trust, and who the
/// client is. Properties are atomic: any thread may read and write each of them as a whole.
///
/// References to anchor, client certificate and identity are kept for the life of the process (see
/// `docs/architecture.md`); each setter takes one.
class KVL_EXPORT KVLNotarySignature {
 public:
  /// A signature of nothing yet: everything absent or null.
  KVLNotarySignature();
  /// With other surroundings than the process's; for the framework itself.
  KVL_INTERNAL explicit KVLNotarySignature(std::shared_ptr<const kvl::Environment> environment);
  ~KVLNotarySignature();
  KVLNotarySignature(const KVLNotarySignature&) = delete;
  KVLNotarySignature& operator=(const KVLNotarySignature&) = delete;

  /// `baseURL` The first usable `https` URL of the notary's reply.
  [[nodiscard]] std::optional<kvl::URL> baseURL() const;
  /// Requests made from now on are resolved against it.
  void setBaseURL(std::optional<kvl::URL> url);

  /// `anchor` The one certificate that the service's chain may end at; may be null.
  [[nodiscard]] kvl::CertificateRef anchor() const;
  /// Challenges from now on are answered by it; null refuses every server.
  void setAnchor(kvl::CertificateRef anchor);

  /// `identity` The client certificate joined to its private key. Present only with a client
  /// certificate.
  [[nodiscard]] kvl::IdentityRef identity() const;
  /// Challenges from now on are answered with it; null has nothing to answer with.
  void setIdentity(kvl::IdentityRef identity);

  /// `client` The client certificate that the notary issued; may be null.
  [[nodiscard]] kvl::CertificateRef client() const;
  /// `expires` follows, the identity does not.
  void setClient(kvl::CertificateRef client);

  /// `certificateNotValidAfter:` The end of the certificate's validity period, or absent. Before
  /// system version 15.0 it is read from the certificate's values, where a number counts seconds
  /// since 2001-01-01; a value of any other type is logged with "unknown not-after: %@".
  [[nodiscard]] static std::optional<kvl::Date> certificateNotValidAfter(
      const kvl::CertificateRef& certificate);

  /// `expires` When the client certificate ends, or the anchor when there is no client certificate
  /// or its end cannot be read; absent without either. No safety margin is taken off.
  [[nodiscard]] std::optional<kvl::Date> expires() const;

  /// `credentials` What answers a client-certificate challenge: the identity and the client
  /// certificate, never stored. Null without an identity.
  [[nodiscard]] kvl::CredentialRef credentials() const;

  /// `description` "notary signature valid until %@ (%.2lf seconds)": the expiry and the time until
  /// then, negative once it has passed.
  [[nodiscard]] std::string description() const;

 private:
  friend class kvl::session::SessionSection;
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};
