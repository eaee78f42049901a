/// @file
/// Certificate signing requests.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Security.h>

#include <optional>
#include <string>

/// Makes PKCS#10 requests (RFC 2986) with an empty subject and no attributes.
class KVL_EXPORT KVLCertificateRequest {
 public:
  KVLCertificateRequest() = delete;

  /// `createForPublicKey:privateKey:error:` The request as PEM text: base64 lines of 64 characters
  /// with CR LF between them, header and footer joined by single line feeds, no final line end.
  ///
  /// @param publicKey handed over: it is reset as soon as the key has been exported. A failure
  ///   before that leaves it as it is.
  /// @param privateKey borrowed; it signs with RSASSA-PKCS1-v1_5 and SHA-256 (RFC 8017, 8.2).
  /// @param error receives the failure. It must be empty: when it holds an error already, the
  ///   result is absent and nothing is done after the key-type test.
  ///
  /// Failures, all with an absent result:
  /// - no private key, else no public key: `NSOSStatusErrorDomain`, -50, user information "error"
  ///   with "null private key" or "null public key";
  /// - a private key that is not RSA, tested only when `error` is given: `NSOSStatusErrorDomain`,
  ///   -67712;
  /// - export or signing failed: the security operation's own error;
  /// - a structure too long for the DER writer: see `KVLNotaryASN1::appendLength`.
  ///
  /// May be called from any thread; takes about a millisecond.
  [[nodiscard]] static std::optional<std::string> createForPublicKey(
      kvl::KeyRef&& publicKey, const kvl::KeyRef& privateKey,
      std::optional<kvl::Error>* error = nullptr);
};
