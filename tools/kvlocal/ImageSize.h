// Sizes of images as text.
#pragma once

#include <local/platform/Geometry.h>

#include <string>

namespace kvlocal {

// An empty text when the text is WIDTHxHEIGHT with two numbers above 0, else what is wrong.
[[nodiscard]] std::string sizeFault(const std::string& text);

// The size that a text without fault names; none at all for the empty one.
[[nodiscard]] kvl::Size sizeOf(const std::string& text);

// "16 x 16"
[[nodiscard]] std::string sizeText(kvl::Size size);

}  // namespace kvlocal
