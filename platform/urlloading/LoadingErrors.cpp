#include "platform/urlloading/LoadingErrors.h"

#include "platform/core/Sentence.h"

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace kvl::urlloading {
namespace {

struct Description {
  std::int64_t code;
  std::string_view text;
};

constexpr std::array kDescriptions = {
    Description{NSURLErrorUnknown, translatable("The request failed for an unknown reason.")},
    Description{NSURLErrorCancelled, translatable("The request was cancelled.")},
    Description{NSURLErrorBadURL, translatable("The address is not valid.")},
    Description{NSURLErrorTimedOut, translatable("The request timed out.")},
    Description{NSURLErrorUnsupportedURL, translatable("The kind of address is not supported.")},
    Description{NSURLErrorCannotFindHost,
                translatable("A server with this host name could not be found.")},
    Description{NSURLErrorCannotConnectToHost, translatable("Could not connect to the server.")},
    Description{NSURLErrorNetworkConnectionLost,
                translatable("The connection to the server was lost.")},
    Description{NSURLErrorHTTPTooManyRedirects,
                translatable("The server redirected the request too often.")},
    Description{NSURLErrorBadServerResponse, translatable("The server's response is not valid.")},
    Description{NSURLErrorCannotDecodeContentData,
                translatable("The server's response cannot be decoded.")},
    Description{
        NSURLErrorRequestBodyStreamExhausted,
        translatable("The body of the request could not be read as far as it was announced.")},
    Description{
        NSURLErrorAppTransportSecurityRequiresSecureConnection,
        translatable("The address is not secure, and only secure connections are allowed.")},
    Description{NSURLErrorDataLengthExceedsMaximum,
                translatable("The server's response is larger than allowed.")},
    Description{NSURLErrorSecureConnectionFailed,
                translatable("A secure connection to the server could not be made.")},
    Description{NSURLErrorServerCertificateHasBadDate,
                translatable("The server's certificate has expired.")},
    Description{NSURLErrorServerCertificateUntrusted,
                translatable("The server's certificate is not trusted.")},
    Description{NSURLErrorServerCertificateHasUnknownRoot,
                translatable("The server's certificate comes from an unknown authority.")},
    Description{NSURLErrorServerCertificateNotYetValid,
                translatable("The server's certificate is not valid yet.")},
    Description{NSURLErrorClientCertificateRejected,
                translatable("The server did not accept the client certificate.")},
    Description{NSURLErrorClientCertificateRequired,
                translatable("The server requires a client certificate.")},
};

std::string_view descriptionOf(std::int64_t code) {
  const auto found = std::find_if(kDescriptions.begin(), kDescriptions.end(),
                                  [code](const Description& entry) { return entry.code == code; });
  return found == kDescriptions.end() ? kDescriptions.front().text : found->text;
}

std::int64_t classifyVerdict(int verifyError) {
  switch (verifyError) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return NSURLErrorServerCertificateHasBadDate;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return NSURLErrorServerCertificateNotYetValid;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return NSURLErrorServerCertificateHasUnknownRoot;
    default:
      return NSURLErrorServerCertificateUntrusted;
  }
}

bool isAboutCertificates(int alert) {
  switch (alert) {
    case SSL_AD_BAD_CERTIFICATE:
    case SSL_AD_UNSUPPORTED_CERTIFICATE:
    case SSL_AD_CERTIFICATE_REVOKED:
    case SSL_AD_CERTIFICATE_EXPIRED:
    case SSL_AD_CERTIFICATE_UNKNOWN:
    case SSL_AD_UNKNOWN_CA:
    case SSL_AD_ACCESS_DENIED:
    case TLS13_AD_CERTIFICATE_REQUIRED:
      return true;
    default:
      return false;
  }
}

std::int64_t codeOf(Undecided reason) {
  return reason == Undecided::timedOut ? NSURLErrorTimedOut : NSURLErrorNetworkConnectionLost;
}

// The codes that name their cause whatever the connection was doing.
std::optional<std::int64_t> classifyPlainCause(CURLcode code) {
  switch (code) {
    case CURLE_URL_MALFORMAT:
      return NSURLErrorBadURL;
    case CURLE_COULDNT_RESOLVE_HOST:
      return NSURLErrorCannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return NSURLErrorCannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT:
      return NSURLErrorTimedOut;
    case CURLE_UNSUPPORTED_PROTOCOL:  // a response that is not HTTP: the scheme was checked before
    case CURLE_WEIRD_SERVER_REPLY:
      return NSURLErrorBadServerResponse;
    case CURLE_BAD_CONTENT_ENCODING:
      return NSURLErrorCannotDecodeContentData;
    case CURLE_OUT_OF_MEMORY:
    case CURLE_FAILED_INIT:
      return NSURLErrorUnknown;
    default:
      return std::nullopt;
  }
}

// Whether the server refused the client's certificate, or that there was none. What comes from a
// server that has gone on since has another cause, unless it says that it is about the certificate:
// some look at it only after the handshake.
bool refusedIdentity(const TLSFacts& tls) {
  if (!tls.certificateRequested || tls.answered) return false;
  return !tls.accepted || (tls.alert && isAboutCertificates(*tls.alert));
}

// Whether the handshake failed only because its session object closed meanwhile. That says nothing
// about anybody's certificate.
bool cutOffByClosing(const FailureFacts& facts) {
  if (!facts.closing || facts.tls->answered) return false;
  const bool isRefusedUnseen = facts.tls->refusedVerdict == X509_V_OK;
  const bool lacksIdentity = facts.tls->certificateRequested && !facts.tls->certificateOffered;
  return isRefusedUnseen || (lacksIdentity && !facts.tls->refusedVerdict);
}

}  // namespace

Error makeURLError(std::int64_t code, std::string_view urlText, std::string_view debugText) {
  return makeDescribedURLError(code, descriptionOf(code), urlText, debugText);
}

Error makeDescribedURLError(std::int64_t code, std::string_view description,
                            std::string_view urlText, std::string_view debugText) {
  Dictionary userInfo = {{NSLocalizedDescriptionKey, Value(description)},
                         {NSURLErrorFailingURLStringErrorKey, Value(urlText)}};
  if (!debugText.empty()) userInfo.set(NSDebugDescriptionErrorKey, Value(debugText));
  return Error(NSURLErrorDomain, code, userInfo);
}

Error makeInvalidRequestError(std::string_view description, std::string_view urlText) {
  return Error(NSPOSIXErrorDomain, EINVAL,
               {{NSLocalizedDescriptionKey, Value(description)},
                {NSURLErrorFailingURLStringErrorKey, Value(urlText)}});
}

Error makeSystemError(int number, std::string_view urlText) {
  return Error(NSPOSIXErrorDomain, number, {{NSURLErrorFailingURLStringErrorKey, Value(urlText)}});
}

std::int64_t classify(const FailureFacts& facts) noexcept {
  if (facts.tls && facts.tls->undecided) return codeOf(*facts.tls->undecided);
  if (facts.tls && cutOffByClosing(facts)) return NSURLErrorNetworkConnectionLost;
  if (facts.tls && facts.tls->refusedVerdict) return classifyVerdict(*facts.tls->refusedVerdict);
  if (const auto cause = classifyPlainCause(facts.code)) return *cause;
  if (facts.tls && refusedIdentity(*facts.tls)) {
    return facts.tls->certificateOffered ? NSURLErrorClientCertificateRejected
                                         : NSURLErrorClientCertificateRequired;
  }
  if (facts.tls && !facts.tls->handshakeDone) return NSURLErrorSecureConnectionFailed;
  return NSURLErrorNetworkConnectionLost;
}

}  // namespace kvl::urlloading
