#include "platform/urlloading/ErrorMaking.h"

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
    Description{NSURLErrorUnknown, "The request failed for an unknown reason."},
    Description{NSURLErrorCancelled, "The request was cancelled."},
    Description{NSURLErrorBadURL, "The address is not valid."},
    Description{NSURLErrorTimedOut, "The request timed out."},
    Description{NSURLErrorUnsupportedURL, "The kind of address is not supported."},
    Description{NSURLErrorCannotFindHost, "A server with this host name could not be found."},
    Description{NSURLErrorCannotConnectToHost, "Could not connect to the server."},
    Description{NSURLErrorNetworkConnectionLost, "The connection to the server was lost."},
    Description{NSURLErrorHTTPTooManyRedirects, "The server redirected the request too often."},
    Description{NSURLErrorBadServerResponse, "The server's response is not valid."},
    Description{NSURLErrorCannotDecodeContentData, "The server's response cannot be decoded."},
    Description{NSURLErrorSecureConnectionFailed,
                "A secure connection to the server could not be made."},
    Description{NSURLErrorServerCertificateHasBadDate, "The server's certificate has expired."},
    Description{NSURLErrorServerCertificateUntrusted, "The server's certificate is not trusted."},
    Description{NSURLErrorServerCertificateHasUnknownRoot,
                "The server's certificate comes from an unknown authority."},
    Description{NSURLErrorServerCertificateNotYetValid,
                "The server's certificate is not valid yet."},
    Description{NSURLErrorClientCertificateRejected,
                "The server did not accept the client certificate."},
    Description{NSURLErrorClientCertificateRequired, "The server requires a client certificate."},
};

std::string_view descriptionOf(std::int64_t code) {
  const auto found = std::find_if(kDescriptions.begin(), kDescriptions.end(),
                                  [code](const Description& entry) { return entry.code == code; });
  return found == kDescriptions.end() ? kDescriptions.front().text : found->text;
}

}  // namespace

Error makeURLError(std::int64_t code, std::string_view urlText, std::string_view debugText) {
  Dictionary userInfo = {{NSLocalizedDescriptionKey, Value(descriptionOf(code))},
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

}  // namespace kvl::urlloading
