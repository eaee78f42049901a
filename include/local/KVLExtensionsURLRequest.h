/// @file
/// Bodies of form requests.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <optional>
#include <string>

namespace KVLExtensions {

/// `randomBoundary` Twelve letters and digits, each drawn uniformly from the system's strong random
/// source (`getrandom(2)`). Any thread.
[[nodiscard]] KVL_EXPORT std::string randomBoundary();

/// `setHTTPBodyWithInputs:` Writes inputs as a multipart/form-data body (after RFC 7578, but in the
/// service's own dialect: every line ends in a single line feed) and sets the fields "Content-Type"
/// and "Content-Length" and the method "POST".
///
/// An input is a dictionary with a string under "name" and, optional, a value under "value": a
/// string, a number (decimal text, a boolean as 1 or 0), a date (RFC 3339, in UTC, whole seconds),
/// data, or a `KVLInputFile`. Texts are sent in UTF-8. The body is one contiguous buffer, into
/// which contents are copied once.
///
/// Nothing is escaped: double quotes in a file's name become hyphens, and every other byte of a
/// name, a file's name or a media type goes out as it is. One that holds a line feed adds lines to
/// the head of its part, so look at what comes from others before you pass it on.
///
/// @return none, or an error in `KVLExtensionsErrorDomain`: 404 for an input without a name; 400
///   for a name with a double quote, for a value of another type (null included), and when no
///   boundary could be found that occurs in no part; or the error with which an open file could not
///   be read (see `KVLInputFile::newWithDescriptor`). On an error, and for no inputs at all, the
///   request is left as it was. Any thread.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Error> setHTTPBodyWithInputs(
    kvl::URLRequest& request, const std::optional<kvl::Array>& inputs);

}  // namespace KVLExtensions
