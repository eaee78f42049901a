// The icons of the menus that the development service serves.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace devservice {

// An SVG of 16 by 16 of which only the shape counts; absent when no icon has that name.
[[nodiscard]] std::optional<std::string> iconDrawing(std::string_view name);

}  // namespace devservice
