// What the framework adds to the platform's classes: dates in RFC 3339 form, images, requests and
// responses.
#include "encoding/Boundary.h"
#include "encoding/MultipartBody.h"
#include "platform/core/Random.h"
#include "platform/formatting/RFC3339.h"

#include <local/KVLExtensions.h>
#include <local/KVLExtensionsDateFormatter.h>
#include <local/KVLExtensionsImage.h>
#include <local/KVLExtensionsURLRequest.h>

#include <algorithm>

namespace KVLExtensions {

using kvl::formatting::rfc3339Formatter;
using kvl::formatting::SecondFraction;

const kvl::DateFormatter& rfc3339nano() {
  return rfc3339Formatter(SecondFraction::nanoseconds);
}

const kvl::DateFormatter& rfc3339() {
  return rfc3339Formatter(SecondFraction::none);
}

std::optional<kvl::Date> dateFromRFC3339(std::string_view text) {
  if (const auto date = rfc3339nano().dateFromString(text)) return date;
  return rfc3339().dateFromString(text);
}

void scaleImage(kvl::Image& image, kvl::Size size) {
  const auto [width, height] = image.size();
  const double factor = std::min(size.width, size.height) / std::max(width, height);
  image.setSize({width * factor, height * factor});
}

std::string randomBoundary() {
  return kvl::encoding::drawBoundary(kvl::core::StrongRandom());
}

std::optional<kvl::Error> setHTTPBodyWithInputs(kvl::URLRequest& request,
                                                const std::optional<kvl::Array>& inputs) {
  if (!inputs) return std::nullopt;
  return kvl::encoding::writeMultipartBody(request, *inputs, randomBoundary);
}

std::int64_t statusCode(const kvl::URLResponse& response) noexcept {
  return response.httpStatusCode.value_or(-1);
}

bool requiresAuthentication(const kvl::URLResponse& response) noexcept {
  const auto status = statusCode(response);
  return status == 401 || status == 403;
}

}  // namespace KVLExtensions
