// Bodies of form requests: how `KVLExtensions::setHTTPBodyWithInputs` makes them.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <functional>
#include <optional>
#include <string>

namespace kvl::encoding {

// Boundaries drawn for one body. The last one is drawn and searched, but never taken.
inline constexpr int kBoundaryDraws = 10;

// Gives a new boundary (`Boundary.h`) per call.
using BoundarySource = std::function<std::string()>;

// Writes body, fields and method as `KVLExtensions::setHTTPBodyWithInputs` says, with boundaries
// from `source`.
[[nodiscard]] std::optional<Error> writeMultipartBody(URLRequest& request, const Array& inputs,
                                                      const BoundarySource& source);

}  // namespace kvl::encoding
