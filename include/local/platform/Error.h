/// @file
/// Errors: a domain, a code and user information. Domains and codes carry the platform's names.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvl {

/// @name Domains
/// @{

/// Requests: codes of HTTPS loading and of the session.
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
/// Documents, files and the notary's service.
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";
/// `errno` values of the local C library, and `kTimedOutPOSIXCode`.
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
/// Keys, certificates and the key store.
inline constexpr std::string_view NSOSStatusErrorDomain = "NSOSStatusErrorDomain";
/// @}

/// @name User-information keys
/// @{

/// A sentence for a person.
inline constexpr std::string_view NSLocalizedDescriptionKey = "NSLocalizedDescription";
/// Why, without a full sentence: what the system or a library says.
inline constexpr std::string_view NSLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
/// The path of the file that the error is about.
inline constexpr std::string_view NSFilePathErrorKey = "NSFilePath";
/// The text of the URL that failed.
inline constexpr std::string_view NSURLErrorFailingURLStringErrorKey = "NSErrorFailingURLStringKey";
/// The text in which a library below the framework described the failure.
inline constexpr std::string_view NSDebugDescriptionErrorKey = "NSDebugDescription";
/// @}

/// @name Codes of `NSURLErrorDomain`
/// @{

/// None of the others, and "Notarised session is not established."
inline constexpr std::int64_t NSURLErrorUnknown = -1;
/// By the host, by the end of the session, or since the HTTPS session object was invalidated.
inline constexpr std::int64_t NSURLErrorCancelled = -999;
/// The text is no URL.
inline constexpr std::int64_t NSURLErrorBadURL = -1000;
/// Too long a silence, or too long in all.
inline constexpr std::int64_t NSURLErrorTimedOut = -1001;
/// A scheme other than `https` and `http`.
inline constexpr std::int64_t NSURLErrorUnsupportedURL = -1002;
/// The host's name has no address.
inline constexpr std::int64_t NSURLErrorCannotFindHost = -1003;
/// Nobody accepts connections there.
inline constexpr std::int64_t NSURLErrorCannotConnectToHost = -1004;
/// A connection ended before the answer did.
inline constexpr std::int64_t NSURLErrorNetworkConnectionLost = -1005;
/// More redirects than a request may follow.
inline constexpr std::int64_t NSURLErrorHTTPTooManyRedirects = -1007;
/// What came is no answer of HTTP.
inline constexpr std::int64_t NSURLErrorBadServerResponse = -1011;
/// The body is not in the encoding that it states, or an event stream's has one.
inline constexpr std::int64_t NSURLErrorCannotDecodeContentData = -1016;
/// A body's source gave fewer bytes than it had said, or could not go back to its first one.
inline constexpr std::int64_t NSURLErrorRequestBodyStreamExhausted = -1021;
/// A clear-text address that the configuration does not allow.
inline constexpr std::int64_t NSURLErrorAppTransportSecurityRequiresSecureConnection = -1022;
/// A body, or the header fields, beyond the configuration's limit.
inline constexpr std::int64_t NSURLErrorDataLengthExceedsMaximum = -1103;
/// The TLS handshake failed for a reason that is none of the following.
inline constexpr std::int64_t NSURLErrorSecureConnectionFailed = -1200;
/// The server's certificate has expired.
inline constexpr std::int64_t NSURLErrorServerCertificateHasBadDate = -1201;
/// The server's certificate is not trusted for another reason than those beside.
inline constexpr std::int64_t NSURLErrorServerCertificateUntrusted = -1202;
/// The server's chain ends at an authority that is not the anchor.
inline constexpr std::int64_t NSURLErrorServerCertificateHasUnknownRoot = -1203;
/// The server's certificate begins in the future, by this machine's clock.
inline constexpr std::int64_t NSURLErrorServerCertificateNotYetValid = -1204;
/// The server refused the client's certificate.
inline constexpr std::int64_t NSURLErrorClientCertificateRejected = -1205;
/// The server wants a certificate, and the client had none to offer.
inline constexpr std::int64_t NSURLErrorClientCertificateRequired = -1206;
/// Counts as an error of the identity; only a host's own loader makes it.
inline constexpr std::int64_t NSURLErrorCannotLoadFromNetwork = -2000;
/// @}

/// @name Codes of `NSCocoaErrorDomain`
/// @{

/// A file became shorter while it was read. Counts as recoverable, where a notary says it.
inline constexpr std::int64_t NSFileReadUnknownError = 256;
/// There is no such file. Counts as recoverable; only a host's own notary makes it.
inline constexpr std::int64_t NSFileReadNoSuchFileError = 260;
/// The document is of another kind than was asked for.
inline constexpr std::int64_t NSFormattingError = 2048;
/// The text or the bytes are no document of their format.
inline constexpr std::int64_t NSPropertyListReadCorruptError = 3840;
/// The format cannot hold the document.
inline constexpr std::int64_t NSPropertyListWriteInvalidError = 3851;
/// The service went away while a call was outstanding.
inline constexpr std::int64_t NSXPCConnectionInterrupted = 4097;
/// The service cannot be reached: no channel, no such name, or an owner that is not trusted.
inline constexpr std::int64_t NSXPCConnectionInvalid = 4099;
/// The service's reply has the wrong shape.
inline constexpr std::int64_t NSXPCConnectionReplyInvalid = 4101;
/// @}

/// @name Codes of `NSOSStatusErrorDomain`
/// @{

/// No such file. Counts as recoverable; only a host's own notary makes it.
inline constexpr std::int64_t fnfErr = -43;
/// A parameter is missing or of the wrong kind.
inline constexpr std::int64_t errSecParam = -50;
/// There is no key store, or it did not answer in time.
inline constexpr std::int64_t errSecNotAvailable = -25291;
/// The key store holds the item already; the framework's own never say so.
inline constexpr std::int64_t errSecDuplicateItem = -25299;
/// The key store does not hold the item.
inline constexpr std::int64_t errSecItemNotFound = -25300;
/// Too large for the key store, or it is full.
inline constexpr std::int64_t errSecDataTooLarge = -25302;
/// The key store is locked, and nobody may be asked.
inline constexpr std::int64_t errSecInteractionNotAllowed = -25308;
/// A PEM block or a certificate that does not decode.
inline constexpr std::int64_t errSecDecode = -26275;
/// No PEM block at all.
inline constexpr std::int64_t errSecUnknownFormat = -25257;
/// A library, or the key store, has failed.
inline constexpr std::int64_t errSecInternalComponent = -2070;
/// The key is not of the kind that the operation needs.
inline constexpr std::int64_t errSecInvalidKeyRef = -67712;
/// @}

/// The code in `NSPOSIXErrorDomain` of a wait that ran out of time. It is 60 on every system,
/// whatever number the local C library gives to `ETIMEDOUT`; its failure reason is the local text
/// of `ETIMEDOUT`. Every other code of the domain is the local C library's.
inline constexpr std::int64_t kTimedOutPOSIXCode = 60;

/// @cond
class Error;
namespace core {
struct Sentence;
KVL_EXPORT Error errorWithSentence(std::string_view, std::int64_t, const Sentence&,
                                   const Dictionary&);
}  // namespace core
/// @endcond

/// An error object. Immutable, shared by reference, usable on any thread.
class KVL_EXPORT Error {
 public:
  /// @param domain one of those above, or a host's own
  /// @param code within the domain
  /// @param userInfo more about it, under the keys above or others
  Error(std::string_view domain, std::int64_t code, const Dictionary& userInfo = {});
  // Copies only: an error that was moved from would hold nothing at all.
  /// Shares the content.
  Error(const Error&) = default;
  /// Shares the content.
  Error& operator=(const Error&) = default;
  ~Error() = default;

  /// Whose code it is.
  [[nodiscard]] const std::string& domain() const noexcept;
  /// The number within the domain.
  [[nodiscard]] std::int64_t code() const noexcept;
  /// Empty unless more was said.
  [[nodiscard]] const Dictionary& userInfo() const noexcept;

  /// Whether this is the error `code` of `domain`.
  [[nodiscard]] bool is(std::string_view domain, std::int64_t code) const noexcept;

  /// What went wrong, for a person: the user information's `NSLocalizedDescriptionKey`, else a
  /// sentence made of the failure reason, or of a text for the code of `NSOSStatusErrorDomain`,
  /// else one that names domain and code. Where the text is one of the framework's, it is in the
  /// user's language (`translated`), and in English in the user information.
  [[nodiscard]] std::string localizedDescription() const;

  /// Why it went wrong: the user information's `NSLocalizedFailureReasonErrorKey`; without it, in
  /// `NSPOSIXErrorDomain`, the system's text for the code (`strerror(3)`), or a text of the
  /// framework for a code of `NSOSStatusErrorDomain`; else absent. In the user's language as
  /// `localizedDescription`.
  [[nodiscard]] std::optional<std::string> localizedFailureReason() const;

  /// One line for the log, in English: domain, code, description and user information.
  [[nodiscard]] std::string description() const;

  /// Equal domain, code and user information.
  friend KVL_EXPORT bool operator==(const Error& a, const Error& b) noexcept;

 private:
  struct Content;
  explicit Error(std::shared_ptr<const Content> content);
  friend Error core::errorWithSentence(std::string_view, std::int64_t, const core::Sentence&,
                                       const Dictionary&);

  std::shared_ptr<const Content> content_;
};

/// Stores `error` in `slot` when the caller gave one.
inline void storeError(std::optional<Error>* slot, std::optional<Error> error) {
  if (slot != nullptr) *slot = std::move(error);
}

}  // namespace kvl
