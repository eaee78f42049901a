// Bodies of forms as the framework writes them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace devservice {

struct FormPart {
  std::string_view name;
  std::optional<std::string_view> filename;
  std::optional<std::string_view> contentType;  // absent for an input without a value
  std::string_view content;
};

inline constexpr std::string_view kFormType = "multipart/form-data";

// The parts of a multipart/form-data body, as views into it, or what is wrong with it. Nothing but
// the framework's dialect is understood: every line ends in a single line feed, the boundary is
// twelve letters and digits, and a part has a disposition and at most a content type.
[[nodiscard]] std::variant<std::vector<FormPart>, std::string> parseForm(
    std::string_view contentType, std::string_view body);

}  // namespace devservice
