// Bodies of form requests: how `KVLExtensions::setHTTPBodyWithInputs` makes them.
#pragma once

#include "platform/core/Random.h"

#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace kvl::encoding {

// Characters of a boundary.
inline constexpr std::size_t kBoundaryLength = 12;

// Boundaries drawn for one body. The last one is drawn and searched, but never taken.
inline constexpr int kBoundaryDraws = 10;

// Gives a new boundary of `kBoundaryLength` characters per call.
using BoundarySource = std::function<std::string()>;

// A boundary of ASCII letters and digits, each drawn uniformly.
[[nodiscard]] std::string drawBoundary(const core::ByteSource& random);

// Writes body, fields and method as `KVLExtensions::setHTTPBodyWithInputs` says, with boundaries
// from `source`.
[[nodiscard]] std::optional<Error> writeMultipartBody(URLRequest& request, const Array& inputs,
                                                      const BoundarySource& source);

}  // namespace kvl::encoding
