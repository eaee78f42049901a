// Any bytes: the parameters are what a plain reading of the rules gives.
#include "encoding/ContentTypeRole.h"
#include "fuzz/Target.h"

#include <algorithm>

namespace {

using kvl::encoding::contentTypeParameters;
using kvl::fuzz::require;

// Another reader, of texts without any white space.
kvl::encoding::ContentTypeParameters parametersElsewhere(std::string_view text) {
  kvl::encoding::ContentTypeParameters parameters;
  const auto semicolon = text.find(';');
  if (semicolon == 0 || semicolon == std::string_view::npos) return parameters;
  text.remove_prefix(semicolon + 1);
  while (!text.empty() && text.front() != '=') {
    const auto sign = std::min(text.find('='), text.size() - 1);
    const auto end = std::min(text.find(',', sign + 1), text.size());
    const auto value = text.substr(sign + 1, end - sign - 1);
    if (!value.empty()) parameters[text.substr(0, sign)] = value;
    text.remove_prefix(end);
  }
  return parameters;
}

bool isPlainText(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
}

void checkContentType(kvl::fuzz::Input input) {
  const auto text = kvl::fuzz::textOf(input);
  const auto parameters = contentTypeParameters(text);
  const bool isTemplate = kvl::encoding::hasTemplateRole(text);
  for (const auto& [name, value] : parameters) {
    require(!name.empty() && !value.empty(), "names and values are not empty");
    require(name.find('=') == std::string_view::npos, "a name ends at an equals sign");
    require(value.find(',') == std::string_view::npos, "a value ends at a comma");
    require(name.data() + name.size() < value.data(), "a value stands behind its name");
    require(value.data() + value.size() <= text.data() + text.size(), "both are views of the text");
  }
  require(!isPlainText(text) || parameters == parametersElsewhere(text),
          "another reader finds the same parameters");
  const auto semicolon = text.find(';');
  require(semicolon != std::string_view::npos || parameters.empty(),
          "parameters follow a semicolon");
  require(!isTemplate || text.find("template", text.find("role")) != std::string_view::npos,
          "a template says so");
  require(isTemplate || !text.starts_with("t;role=template"), "who says so is a template");
}

const kvl::fuzz::Target contentType("contenttype", checkContentType);

}  // namespace
