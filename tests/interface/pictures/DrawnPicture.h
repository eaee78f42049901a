// Decoding and drawing in a few words.
#pragma once

#include "platform/interface/pictures/Picture.h"

#include <local/platform/Image.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kvltest {

// By its first bytes. Null when there is none.
[[nodiscard]] std::unique_ptr<kvl::pictures::Picture> pictureOf(std::string_view bytes);

// Empty when the drawing failed, or without a picture.
[[nodiscard]] kvl::Bitmap drawn(const std::unique_ptr<kvl::pictures::Picture>& picture,
                                std::uint32_t width, std::uint32_t height);
[[nodiscard]] kvl::Bitmap drawn(std::string_view bytes, std::uint32_t width, std::uint32_t height);

// The left half is red, the right half blue.
void expectRedAndBlue(const kvl::Bitmap& bitmap, const std::string& what);

}  // namespace kvltest
