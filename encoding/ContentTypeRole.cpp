#include "encoding/ContentTypeRole.h"

#include <local/platform/SystemVersion.h>

#include <algorithm>

namespace kvl::encoding {
namespace {

constexpr std::string_view kFieldName = "Content-Type";

// Unicode's separators and line ends, in UTF-8.
constexpr std::string_view kWhiteSpace[] = {
    " ",      "\t",     "\n",     "\v",     "\f",     "\r",     "\u0085", "\u00a0", "\u1680",
    "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
    "\u2009", "\u200a", "\u2028", "\u2029", "\u202f", "\u205f", "\u3000",
};

// Reads a text from its beginning; every step skips white space first.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  // The text before `end`, or all that is left; it may be empty.
  std::string_view scanUpTo(char end) {
    skipWhiteSpace();
    const auto scanned = rest_.substr(0, rest_.find(end));
    rest_.remove_prefix(scanned.size());
    return scanned;
  }

  void skip(char character) {
    skipWhiteSpace();
    if (rest_.starts_with(character)) rest_.remove_prefix(1);
  }

 private:
  void skipWhiteSpace() {
    while (const auto size = leadingWhiteSpace()) rest_.remove_prefix(size);
  }

  [[nodiscard]] std::size_t leadingWhiteSpace() const {
    const auto* found = std::ranges::find_if(
        kWhiteSpace, [this](std::string_view space) { return rest_.starts_with(space); });
    return found == std::end(kWhiteSpace) ? 0 : found->size();
  }

  std::string_view rest_;
};

}  // namespace

ContentTypeParameters contentTypeParameters(std::string_view contentType) {
  ContentTypeParameters parameters;
  Scanner scanner(contentType);
  if (scanner.scanUpTo(';').empty()) return parameters;
  scanner.skip(';');
  for (;;) {
    const auto name = scanner.scanUpTo('=');
    if (name.empty()) return parameters;
    scanner.skip('=');
    const auto value = scanner.scanUpTo(',');
    if (!value.empty()) parameters[name] = value;
  }
}

bool hasTemplateRole(std::string_view contentType) {
  const auto parameters = contentTypeParameters(contentType);
  const auto role = parameters.find("role");
  return role != parameters.end() && role->second.find("template") != std::string_view::npos;
}

std::optional<std::string_view> contentTypeOf(const URLResponse& response) {
  if (!response.isHTTP()) return std::nullopt;
  if (isSystemVersionAtLeast(10, 15)) return response.headers.find(kFieldName);
  const auto field =
      std::ranges::find(response.headers, kFieldName, [](const auto& each) { return each.first; });
  if (field == response.headers.end()) return std::nullopt;
  return field->second;
}

}  // namespace kvl::encoding
