// How a command tells that it failed: a sentence on standard error and, with --json, an object with
// "error" on standard output.
#pragma once

#include "tools/kvlocal/Output.h"

#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <string_view>

namespace kvlocal {

// A failure that has no error of the framework: its code is the exit status.
[[nodiscard]] kvl::Error ownError(ExitCode code, std::string_view what);

// Tells `sentence`, and `error` as JSON when `json`, followed by the entries of `more`. The result
// is `code`, or `output` when standard output cannot be written.
[[nodiscard]] ExitCode fail(bool json, ExitCode code, std::string_view sentence,
                            const kvl::Error& error, const kvl::Dictionary& more = {});

// The same with an error that consists of the sentence.
[[nodiscard]] ExitCode fail(bool json, ExitCode code, std::string_view sentence);

}  // namespace kvlocal
