// Words in the texts of an SVG that decide whether and how it is drawn.
#pragma once

#include <cstddef>
#include <string_view>

namespace kvl::images {

// Whether an attribute or a style sheet may hold another file, be it hidden from a plain search: by
// blanks, which addresses drop, or by escapes.
[[nodiscard]] bool mayEmbedFile(std::string_view text);

// Whether the property or attribute makes the renderer draw to a surface of its own.
[[nodiscard]] bool makesLayer(std::string_view name, std::string_view value);

// How often style declarations name such a property.
[[nodiscard]] std::size_t layersInStyle(std::string_view style);

// Whether the XML declaration, without its brackets, leaves the text in UTF-8.
[[nodiscard]] bool declaresUTF8(std::string_view declaration);

}  // namespace kvl::images
