#include "platform/urlloading/RequestCheck.h"

#include "platform/core/ASCII.h"
#include "platform/core/Sentence.h"
#include "platform/urlloading/LoadingErrors.h"

#include <algorithm>
#include <utility>

namespace kvl::urlloading {

RequestRef withAdditionalHeaders(RequestRef request, const HeaderFields& additional) {
  const HeaderFields& own = request->headers();
  std::shared_ptr<URLRequest> longer;
  for (const auto& [name, value] : additional) {
    if (own.find(name)) continue;
    if (!longer) longer = std::make_shared<URLRequest>(*request);
    longer->headers().append(name, value);
  }
  if (longer) return longer;
  return request;
}

std::optional<Error> requestFault(const URLRequest& request,
                                  const URLSessionConfiguration& configuration) {
  const auto text = request.urlText();
  if (!request.url()) return makeURLError(NSURLErrorBadURL, text);
  if (!isLoadable(*request.url())) return makeURLError(NSURLErrorUnsupportedURL, text);
  if (!namesHost(*request.url())) return makeURLError(NSURLErrorBadURL, text);
  if (!configuration.allowsInsecureHTTPLoads && !isSecure(*request.url()))
    return makeURLError(NSURLErrorAppTransportSecurityRequiresSecureConnection, text);
  if (!isToken(request.method()))
    return makeInvalidRequestError(translatable("The request's method is not valid."), text);
  const auto& headers = request.headers();
  const bool sendable = std::all_of(headers.begin(), headers.end(), [](const auto& field) {
    return isSendableHeaderField(field.first, field.second);
  });
  if (!sendable)
    return makeInvalidRequestError(translatable("A header field of the request is not valid."),
                                   text);
  return std::nullopt;
}

bool isToken(std::string_view text) noexcept {
  constexpr std::string_view kPunctuation = "!#$%&'*+-.^_`|~";
  const auto isTokenCharacter = [&](char c) {
    return ascii::isLetterOrDigit(c) || kPunctuation.find(c) != std::string_view::npos;
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

bool isLoadable(const URL& url) noexcept {
  const auto scheme = url.scheme();
  return scheme &&
         (ascii::equalIgnoringCase(*scheme, "https") || ascii::equalIgnoringCase(*scheme, "http"));
}

bool namesHost(const URL& url) noexcept {
  return !url.host().value_or(std::string_view()).empty();
}

bool isSecure(const URL& url) noexcept {
  const auto scheme = url.scheme();
  return scheme && ascii::equalIgnoringCase(*scheme, "https");
}

bool isSameHost(const URL& a, const URL& b) noexcept {
  const auto first = a.host();
  const auto second = b.host();
  return first && second && ascii::equalIgnoringCase(*first, *second);
}

}  // namespace kvl::urlloading
