// Bodies of form requests: how `KVLExtensions::setHTTPBodyWithInputs` makes them.
#pragma once

#include "encoding/MultipartParts.h"

#include <optional>

namespace kvl::encoding {

// Writes body, fields and method as `KVLExtensions::setHTTPBodyWithInputs` says, with boundaries
// from `source`.
[[nodiscard]] std::optional<Error> writeMultipartBody(URLRequest& request, const Array& inputs,
                                                      const BoundarySource& source);

}  // namespace kvl::encoding
