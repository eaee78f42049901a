// What commands tell of a request's answer.
#pragma once

#include "tools/kvlocal/Exchange.h"
#include "tools/kvlocal/ExitCode.h"

#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <optional>
#include <string>
#include <string_view>

namespace kvlocal {

// What the user wants to see of an answer.
struct Report {
  bool showsHead = false;
  bool json = false;
};

// Declares --include.
void declareHead(CLI::App& parser, bool& showsHead);

// Status and header fields: lines and an empty line, or entries of an object.
[[nodiscard]] std::string headText(const kvl::URLResponse& response);
[[nodiscard]] kvl::Dictionary headValue(const kvl::URLResponse& response);

// Tells that the request failed, and why, with `json` on standard output too. The result is the
// command's.
[[nodiscard]] ExitCode reportFailure(const kvl::Error& error, const kvl::URLResponseRef& response,
                                     bool json);

// The same for an answer that has come and that is not what was asked for: `what` it is instead.
// An error status goes before that.
[[nodiscard]] ExitCode reportUnusable(std::string_view what, const kvl::Error& error,
                                      const kvl::URLResponseRef& response, bool json);

// What brought no document: the same for an answer that cannot be decoded, else `reportFailure`.
[[nodiscard]] ExitCode reportNoDocument(const kvl::Error& error,
                                        const kvl::URLResponseRef& response, bool json);

// `shown`, unless that is `ok` and the status is an error, which is told then.
[[nodiscard]] ExitCode withStatus(ExitCode shown, const kvl::URLResponse& response);

// Shows a body as it came.
[[nodiscard]] ExitCode reportBody(const Answer<std::optional<kvl::Data>>& answer,
                                  const Report& report);

}  // namespace kvlocal
