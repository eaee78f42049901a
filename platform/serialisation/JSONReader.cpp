#include "platform/serialisation/JSONReader.h"

#include "platform/serialisation/JSONParser.h"
#include "platform/serialisation/JSONTokens.h"

#include <new>
#include <string>
#include <string_view>

namespace kvl {
namespace {

using serialisation::JSONParser;
using serialisation::JSONWorkspace;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::optional<Value> fail(std::string_view problem, std::optional<Error>* error) {
  storeError(error, Error(NSCocoaErrorDomain, NSPropertyListReadCorruptError,
                          {{NSDebugDescriptionErrorKey, problem}}));
  return std::nullopt;
}

// A number or word at top level is read from a copy, which ends with a character of another kind.
bool needsCopy(std::string_view text, std::span<const std::uint32_t> tokens) {
  const char first = text[tokens.front()];
  return first != '[' && first != '{' && first != '"';
}

std::optional<Value> parse(const Data& owner, std::string_view text, JSONWorkspace& workspace,
                           std::string& problem) {
  const auto tokens = workspace.tokensOf(text, problem);
  if (tokens.empty()) return std::nullopt;
  std::string copy;
  if (needsCopy(text, tokens)) text = copy = text;
  JSONParser parser(owner, text, tokens, workspace);
  auto value = parser.parse();
  if (!value) {
    const auto offset = owner.size() - text.size() + parser.offset();
    problem = std::string(parser.problem()) + " at byte " + std::to_string(offset);
  }
  return value;
}

std::optional<Value> read(const Data& owner, std::string& problem) {
  std::string_view text = owner.text();
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  if (text.size() > kMaximumJSONSize) {
    problem = "the text is too large";
    return std::nullopt;
  }
  auto workspace = JSONWorkspace::take();
  auto value = parse(owner, text, *workspace, problem);
  JSONWorkspace::leave(std::move(workspace));
  return value;
}

}  // namespace

std::optional<Value> valueFromJSON(const Data& text, std::optional<Error>* error) {
  std::string problem;
  try {
    if (auto value = read(text, problem)) {
      storeError(error, std::nullopt);
      return value;
    }
  } catch (const std::bad_alloc&) {
    problem = "out of memory";
  }
  return fail(problem, error);
}

}  // namespace kvl
