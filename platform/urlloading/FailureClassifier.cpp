#include "platform/urlloading/FailureClassifier.h"

#include <local/platform/Error.h>

#include <openssl/x509_vfy.h>

namespace kvl::urlloading {
namespace {

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

}  // namespace

std::int64_t classify(const FailureFacts& facts) noexcept {
  if (facts.tls && facts.tls->refusedVerdict) return classifyVerdict(*facts.tls->refusedVerdict);
  if (const auto cause = classifyPlainCause(facts.code)) return *cause;
  if (facts.tls && facts.tls->certificateRequested && !facts.responded) {
    return facts.tls->certificateOffered ? NSURLErrorClientCertificateRejected
                                         : NSURLErrorClientCertificateRequired;
  }
  if (facts.tls && !facts.tls->handshakeDone) return NSURLErrorSecureConnectionFailed;
  return NSURLErrorNetworkConnectionLost;
}

}  // namespace kvl::urlloading
