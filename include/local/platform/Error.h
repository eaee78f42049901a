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
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view NSOSStatusErrorDomain = "NSOSStatusErrorDomain";
/// @}

/// @name User-information keys
/// @{
inline constexpr std::string_view NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view NSLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
inline constexpr std::string_view NSFilePathErrorKey = "NSFilePath";
/// The text of the URL that failed.
inline constexpr std::string_view NSURLErrorFailingURLStringErrorKey = "NSErrorFailingURLStringKey";
/// The text in which a library below the framework described the failure.
inline constexpr std::string_view NSDebugDescriptionErrorKey = "NSDebugDescription";
/// @}

/// @name Codes of `NSURLErrorDomain`
/// @{
inline constexpr std::int64_t NSURLErrorUnknown = -1;
inline constexpr std::int64_t NSURLErrorCancelled = -999;
inline constexpr std::int64_t NSURLErrorBadURL = -1000;
inline constexpr std::int64_t NSURLErrorTimedOut = -1001;
inline constexpr std::int64_t NSURLErrorUnsupportedURL = -1002;
inline constexpr std::int64_t NSURLErrorCannotFindHost = -1003;
inline constexpr std::int64_t NSURLErrorCannotConnectToHost = -1004;
inline constexpr std::int64_t NSURLErrorNetworkConnectionLost = -1005;
inline constexpr std::int64_t NSURLErrorHTTPTooManyRedirects = -1007;
inline constexpr std::int64_t NSURLErrorBadServerResponse = -1011;
inline constexpr std::int64_t NSURLErrorCannotDecodeContentData = -1016;
/// A body's source gave fewer bytes than it had said, or could not go back to its first one.
inline constexpr std::int64_t NSURLErrorRequestBodyStreamExhausted = -1021;
/// A clear-text address that the configuration does not allow.
inline constexpr std::int64_t NSURLErrorAppTransportSecurityRequiresSecureConnection = -1022;
inline constexpr std::int64_t NSURLErrorDataLengthExceedsMaximum = -1103;
inline constexpr std::int64_t NSURLErrorSecureConnectionFailed = -1200;
inline constexpr std::int64_t NSURLErrorServerCertificateHasBadDate = -1201;
inline constexpr std::int64_t NSURLErrorServerCertificateUntrusted = -1202;
inline constexpr std::int64_t NSURLErrorServerCertificateHasUnknownRoot = -1203;
inline constexpr std::int64_t NSURLErrorServerCertificateNotYetValid = -1204;
inline constexpr std::int64_t NSURLErrorClientCertificateRejected = -1205;
inline constexpr std::int64_t NSURLErrorClientCertificateRequired = -1206;
inline constexpr std::int64_t NSURLErrorCannotLoadFromNetwork = -2000;
/// @}

/// @name Codes of `NSCocoaErrorDomain`
/// @{
inline constexpr std::int64_t NSFileReadUnknownError = 256;
inline constexpr std::int64_t NSFileReadNoSuchFileError = 260;
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
inline constexpr std::int64_t fnfErr = -43;
inline constexpr std::int64_t errSecParam = -50;
inline constexpr std::int64_t errSecNotAvailable = -25291;
inline constexpr std::int64_t errSecDuplicateItem = -25299;
inline constexpr std::int64_t errSecItemNotFound = -25300;
inline constexpr std::int64_t errSecDataTooLarge = -25302;
inline constexpr std::int64_t errSecInteractionNotAllowed = -25308;
inline constexpr std::int64_t errSecDecode = -26275;
inline constexpr std::int64_t errSecUnknownFormat = -25257;
inline constexpr std::int64_t errSecInternalComponent = -2070;
inline constexpr std::int64_t errSecInvalidKeyRef = -67712;
/// @}

/// The code in `NSPOSIXErrorDomain` of a wait that ran out of time. It is 60 on every system,
/// whatever number the local C library gives to `ETIMEDOUT`; its failure reason is the local text
/// of `ETIMEDOUT`. Every other code of the domain is the local C library's.
inline constexpr std::int64_t kTimedOutPOSIXCode = 60;

/// An error object. Immutable, shared by reference, usable on any thread.
class KVL_EXPORT Error {
 public:
  Error(std::string_view domain, std::int64_t code, const Dictionary& userInfo = {});
  // Copies only: an error that was moved from would hold nothing at all.
  Error(const Error&) = default;
  Error& operator=(const Error&) = default;
  ~Error() = default;

  [[nodiscard]] const std::string& domain() const noexcept;
  [[nodiscard]] std::int64_t code() const noexcept;
  [[nodiscard]] const Dictionary& userInfo() const noexcept;

  /// Whether this is the error `code` of `domain`.
  [[nodiscard]] bool is(std::string_view domain, std::int64_t code) const noexcept;

  /// What went wrong, for a person: the user information's `NSLocalizedDescriptionKey`, else a
  /// sentence made of the failure reason, or of a text for the code of `NSOSStatusErrorDomain`,
  /// else one that names domain and code.
  [[nodiscard]] std::string localizedDescription() const;

  /// Why it went wrong: the user information's `NSLocalizedFailureReasonErrorKey`; without it, in
  /// `NSPOSIXErrorDomain`, the system's text for the code (`strerror_r(3)`), or a text of the
  /// framework for a code of `NSOSStatusErrorDomain`; else absent.
  [[nodiscard]] std::optional<std::string> localizedFailureReason() const;

  /// One line for the log: domain, code, description and user information.
  [[nodiscard]] std::string description() const;

  /// Equal domain, code and user information.
  friend KVL_EXPORT bool operator==(const Error& a, const Error& b) noexcept;

 private:
  struct Content;
  std::shared_ptr<const Content> content_;
};

/// Stores `error` in `slot` when the caller gave one.
inline void storeError(std::optional<Error>* slot, std::optional<Error> error) {
  if (slot != nullptr) *slot = std::move(error);
}

}  // namespace kvl
