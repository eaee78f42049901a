// What came of a request, in words.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>

#include <QString>
#include <optional>

namespace qthost {

struct Outcome {
  bool isGood = false;
  QString text;  // "200 OK", or what went wrong
};

// A status of 300 and more says more than the error of what came with it.
[[nodiscard]] Outcome outcomeOf(const kvl::URLResponseRef& response,
                                const std::optional<kvl::Error>& error);

}  // namespace qthost
