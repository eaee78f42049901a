#include "tools/kvlocal/Failure.h"

#include "tools/kvlocal/Describe.h"

#include <local/platform/Text.h>

namespace kvlocal {
namespace {

constexpr std::string_view kDomain = "kvlocal";

}  // namespace

kvl::Error ownError(ExitCode code, std::string_view what) {
  return {kDomain, static_cast<int>(code), {{kvl::NSLocalizedDescriptionKey, what}}};
}

ExitCode fail(bool json, ExitCode code, std::string_view sentence, const kvl::Error& error,
              const kvl::Dictionary& more) {
  complain(sentence);
  if (!json) return code;
  kvl::Dictionary value{{"error", errorValue(error)}};
  for (const auto& [name, entry] : more)
    if (!value.find(name)) value.set(name, entry);
  const ExitCode printed = printLine(kvl::jsonText(value));
  return printed == ExitCode::ok ? code : printed;
}

ExitCode fail(bool json, ExitCode code, std::string_view sentence) {
  return fail(json, code, sentence, ownError(code, sentence));
}

}  // namespace kvlocal
