// Encoded images, made by the libraries' own encoders: the left half is red, the right half blue.
#pragma once

#include <local/platform/Image.h>

#include <array>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace kvltest {

struct MadeImage {
  std::string name;
  kvl::Data data;
};
inline void PrintTo(const MadeImage& image, std::ostream* out) {
  *out << image.name;
}

// `format` is png, jpeg, tiff, bmp or ico, as gdk-pixbuf names them.
[[nodiscard]] kvl::Data madePixbuf(const char* format, int width, int height);
[[nodiscard]] kvl::Data madeGIF(int pictures);
[[nodiscard]] kvl::Data madeWebP();
[[nodiscard]] kvl::Data madeSVG();
[[nodiscard]] kvl::Data madePDF();

// 32 x 16, once in each format.
[[nodiscard]] std::array<MadeImage, 9> madeImages();

// A document of one page with the given content and, as its fifth object, a resource named R.
[[nodiscard]] kvl::Data writtenPDF(std::string_view mediaBox, std::string_view content,
                                   std::string_view resource = "<<>>");

// An SVG with the given attributes of its root and the given elements.
[[nodiscard]] kvl::Data writtenSVG(std::string_view attributes, std::string_view elements);

using Pixel = std::array<int, 4>;
[[nodiscard]] Pixel pixelAt(const kvl::Bitmap& bitmap, std::uint32_t x, std::uint32_t y);

}  // namespace kvltest
