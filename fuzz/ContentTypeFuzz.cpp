// Any bytes: the parameters are what a plain reading of the rules gives.
#include "encoding/ContentTypeRole.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

using kvl::encoding::contentTypeParameters;

void require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "it does not hold that %s\n", rule);
  std::abort();
}

void check(std::string_view text) {
  const auto parameters = contentTypeParameters(text);
  const bool isTemplate = kvl::encoding::hasTemplateRole(text);
  for (const auto& [name, value] : parameters) {
    require(!name.empty() && !value.empty(), "names and values are not empty");
    require(name.find('=') == std::string_view::npos, "a name ends at an equals sign");
    require(value.find(',') == std::string_view::npos, "a value ends at a comma");
    require(name.data() + name.size() < value.data(), "a value stands behind its name");
    require(value.data() + value.size() <= text.data() + text.size(), "both are views of the text");
  }
  const auto semicolon = text.find(';');
  require(semicolon != std::string_view::npos || parameters.empty(),
          "parameters follow a semicolon");
  require(!isTemplate || text.find("template", text.find("role")) != std::string_view::npos,
          "a template says so");
  require(isTemplate || !text.starts_with("t;role=template"), "who says so is a template");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  check({reinterpret_cast<const char*>(data), size});
  return 0;
}
