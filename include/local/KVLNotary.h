/// @file
/// The notary client: obtains the client identity from the notary service.
#pragma once

#include <local/KVLNotarySignature.h>
#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Security.h>
#include <local/platform/URL.h>
#include <local/platform/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// @name Keys of the request and of the reply
/// Writable, for hosts whose notary spells them differently. Set them before the first
/// notarisation, to texts that live as long as the process: they are read without a lock.
/// @{
extern KVL_EXPORT std::string_view NotaryRequestKeyCertificateSigningRequest;  ///< "csr"
extern KVL_EXPORT std::string_view NotaryResponseKeyURL;                       ///< "url"
extern KVL_EXPORT std::string_view NotaryResponseKeyAnchor;                    ///< "anchor"
extern KVL_EXPORT std::string_view NotaryResponseKeyCertificate;               ///< "certificate"
/// @}

namespace kvl {
struct Environment;
}

/// A client of the notary service "korvale.vandrel.local.notary".
///
/// Creating one deletes the host application's old key pair from the key store, makes a new one
/// and builds the certificate signing request; destroying it deletes the pair. Two notaries of one
/// host application, in one process or in two, therefore delete each other's entries in the key
/// store. That costs neither of them its identity: as long as a notary lives, the private key that
/// it holds is found for a certificate, whatever has become of the entry and whether or not the
/// store answers.
///
/// Two environment variables steer it. `korvale_vandrel_notary`, read when the shared notary is
/// made, is that notary's `path`. `korvale_vandrel_notary_minimum`, read at every notarisation,
/// makes the request go out without its "csr" entry; an empty value counts as unset for both.
///
/// The references to the keys are kept for the life of the process (see `docs/architecture.md`).
class KVL_EXPORT KVLNotary {
 public:
  /// Receives a signature or an error, exactly one of them. Runs once, on the process's reply
  /// thread, with no lock held; it must not block for long, since all replies pass there.
  using CompletionHandler =
      std::function<void(std::shared_ptr<KVLNotarySignature>, std::optional<kvl::Error>)>;
  /// Receives the service's reply and error, each possibly absent.
  using ReplyHandler =
      std::function<void(std::optional<kvl::Dictionary>, std::optional<kvl::Error>)>;

  /// `sharedNotary` The process's notary, made on first use and never destroyed.
  [[nodiscard]] static std::shared_ptr<KVLNotary> sharedNotary();

  /// The same notary, but its keys are made on a thread of the framework's if there are none yet,
  /// so that the call costs nothing. Notarisations that are asked for meanwhile wait for the keys,
  /// and so does `sharedNotary`. Until then it has no keys and no request.
  [[nodiscard]] static std::shared_ptr<KVLNotary> sharedNotaryInBackground();

  /// `notaryWithPath:`
  [[nodiscard]] static std::shared_ptr<KVLNotary> notaryWithPath(std::optional<std::string> path);

  /// `init` Costs the caller the generation of an RSA key of 2048 bits (about 120 ms, sometimes
  /// twice that) and three key-store operations, which take a few milliseconds and at most 2 s in
  /// all when the store does not answer. Failures are logged, and the notary then has no keys and
  /// no request.
  KVLNotary();

  /// `initWithPath:`
  explicit KVLNotary(std::optional<std::string> path);

  /// With other surroundings than the process's; for the framework itself.
  KVL_INTERNAL KVLNotary(std::optional<std::string> path,
                         std::shared_ptr<const kvl::Environment> environment);

  /// As that one, with its keys made as those of `sharedNotaryInBackground`; for the framework
  /// itself.
  [[nodiscard]] KVL_INTERNAL static std::shared_ptr<KVLNotary> notaryInBackground(
      std::optional<std::string> path, std::shared_ptr<const kvl::Environment> environment);

  /// Deletes the key pair from the key store, or leaves that to the thread that makes it.
  virtual ~KVLNotary();
  KVLNotary(const KVLNotary&) = delete;
  KVLNotary& operator=(const KVLNotary&) = delete;

  /// `notariseWithCompletionHandler:` Asks the service for a signature. Never blocks; calls may
  /// overlap. The notary may be destroyed before the handler runs. What overrides it must not block
  /// either: sessions renew from the few threads on which all timers of the framework fire. A
  /// notary without keys, because they are being made or because the last session that used it has
  /// ended, has them made first; when they are taken away before that is done, the error is
  /// `NSURLErrorCancelled`.
  ///
  /// Errors: the channel's (see `sendNotary`); the service's own, unchanged; `NSPOSIXErrorDomain`,
  /// -1002, with the reply's URLs under "urls" when none of them is usable; `NSPOSIXErrorDomain`
  /// with the import's status when the anchor is no certificate. A client certificate or identity
  /// that cannot be used is logged, and the signature goes without.
  virtual void notariseWithCompletionHandler(CompletionHandler completionHandler);

  /// `sendNotary:request:reply:` Opens a connection, sends, hands over the answer and closes. A
  /// channel that fails is logged with "xpc error: %@" and reported with an absent reply and
  /// `NSCocoaErrorDomain` 4097 (interrupted), 4099 (no such service, no channel, or an owner of
  /// another user) or 4101 (a reply of the wrong shape), or `NSPOSIXErrorDomain` 60 when the
  /// service took the call and did not answer within 120 s.
  void sendNotary(const std::optional<std::string>& path, const kvl::Dictionary& request,
                  ReplyHandler reply);

  /// `baseURL:` The first element that is an "https" URL with a host; absent when there is none or
  /// `urls` is no array.
  [[nodiscard]] static std::optional<kvl::URL> baseURL(const kvl::Value& urls);

  /// `decode:certificate:` Stores the first certificate of a PEM text (RFC 7468) in `certificate`.
  /// A missing or empty text leaves it alone and is no error; a text that does not import is
  /// `NSPOSIXErrorDomain` with the status as code.
  [[nodiscard]] static std::optional<kvl::Error> decode(std::optional<std::string_view> text,
                                                        kvl::CertificateRef* certificate);

  /// `path` Handed to the service unchanged with every request.
  [[nodiscard]] std::optional<std::string> path() const;
  /// Handed over from the next notarisation on.
  void setPath(std::optional<std::string> path);
  /// `publicKey` Null when no key pair could be made, or while it is being made.
  [[nodiscard]] kvl::KeyRef publicKey() const;
  /// Stored as it is; the request that exists stays what it is.
  void setPublicKey(kvl::KeyRef key);
  /// `privateKey` Identities are made with it while the notary lives; a key that is replaced counts
  /// no more unless the key store has it.
  [[nodiscard]] kvl::KeyRef privateKey() const;
  /// Stored as it is; the request that exists stays what it is.
  void setPrivateKey(kvl::KeyRef key);
  /// `pemCertificateSigningRequest` Absent when keys or request could not be made.
  [[nodiscard]] std::optional<std::string> pemCertificateSigningRequest() const;
  /// Sent with the next notarisation.
  void setPemCertificateSigningRequest(std::optional<std::string> request);

  /// Whether the key pair and the request are there. They are not while they are made in the
  /// background, when they could not be made, and after the last session that used the notary has
  /// ended.
  [[nodiscard]] bool hasKeys() const;

  /// @name Key store
  /// Stateless; any thread. The keys are told apart by the host's identifier
  /// (`kvl::setHostIdentifier`); a host without one has no keys, which is logged.
  /// @{

  /// `keyQuery` What finds the private key: a new dictionary with exactly the entries `kSecClass`,
  /// `kSecAttrKeyType`, `kSecAttrKeyClass` and `kSecAttrApplicationTag` (the identifier's bytes).
  [[nodiscard]] static kvl::Dictionary keyQuery();

  /// `createKeysPublic:private:` Makes a pair and fills the slots that are not null. On failure
  /// the slots stay as they are, and the error is `NSOSStatusErrorDomain` with the status.
  [[nodiscard]] static std::optional<kvl::Error> createKeysPublic(kvl::KeyRef* publicKey,
                                                                  kvl::KeyRef* privateKey);

  /// `deleteKeys` Deletes every key of the host's identifier. That there was none is no error; any
  /// other failure is `NSOSStatusErrorDomain` with "call" → "SecItemDelete".
  [[nodiscard]] static std::optional<kvl::Error> deleteKeys();
  /// @}

  /// @name Users
  /// The sessions that use this notary. With the last one that ends, the key pair is deleted from
  /// the key store; the next notarisation has a new one made first. For the framework itself.
  /// @{

  /// One session more uses the notary.
  KVL_INTERNAL void addUser();
  /// The keys stay.
  KVL_INTERNAL void removeUser();
  /// `ended` is called once, on any thread, when the keys are gone or others use them.
  KVL_INTERNAL void endUser(std::function<void(std::optional<kvl::Error>)> ended);
  /// @}

 protected:
  /// Tag for subclasses that answer notarisations themselves and need no keys.
  struct WithoutKeys {};
  /// A notary without a key pair, and with no cost for one.
  explicit KVLNotary(WithoutKeys);

 private:
  // Has none until somebody makes them.
  struct KeysLater {};
  KVLNotary(KeysLater, std::optional<std::string> path,
            std::shared_ptr<const kvl::Environment> environment);
  [[nodiscard]] static const std::shared_ptr<KVLNotary>& processNotary();

  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};
