#include "encoding/MultipartBody.h"
#include "platform/core/Random.h"

#include <local/KVLExtensionsURLRequest.h>

std::string KVLExtensions::randomBoundary() {
  return kvl::encoding::drawBoundary(kvl::core::StrongRandom());
}

std::optional<kvl::Error> KVLExtensions::setHTTPBodyWithInputs(
    kvl::URLRequest& request, const std::optional<kvl::Array>& inputs) {
  if (!inputs) return std::nullopt;
  return kvl::encoding::writeMultipartBody(request, *inputs, randomBoundary);
}
