#include "tests/interface/MadeImages.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <webp/encode.h>

#include <cstring>
#include <vector>

namespace kvltest {
namespace {

constexpr int kWidth = 32;
constexpr int kHeight = 16;

kvl::Data taken(const void* bytes, std::size_t size) {
  return kvl::Data::fromText({static_cast<const char*>(bytes), size});
}

// Codes of three bits, the lowest bit first. A clear code before each pixel keeps them that short.
std::string uncompressedPicture(bool mirrored) {
  constexpr unsigned clear = 4;
  constexpr unsigned end = 5;
  std::string bytes;
  unsigned bits = 0;
  unsigned count = 0;
  const auto put = [&](unsigned code) {
    bits |= code << count;
    for (count += 3; count >= 8; count -= 8, bits >>= 8) bytes += static_cast<char>(bits & 255);
  };
  for (int i = 0; i < kWidth * kHeight; ++i) {
    put(clear);
    put((i % kWidth < kWidth / 2) == mirrored ? 1 : 0);
  }
  put(end);
  bytes += static_cast<char>(bits);
  return bytes;
}

std::string pictureBlock(bool mirrored) {
  std::string block("\x2C\0\0\0\0\x20\0\x10\0\0\x02", 11);
  const auto codes = uncompressedPicture(mirrored);
  for (std::size_t i = 0; i < codes.size(); i += 255) {
    const auto part = codes.substr(i, 255);
    block += static_cast<char>(part.size());
    block += part;
  }
  return block + '\0';
}

}  // namespace

kvl::Data madePixbuf(const char* format, int width, int height) {
  GdkPixbuf* const pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  gdk_pixbuf_fill(pixbuf, 0xFF0000FF);
  GdkPixbuf* const right =
      gdk_pixbuf_new_subpixbuf(pixbuf, width / 2, 0, width - width / 2, height);
  gdk_pixbuf_fill(right, 0x0000FFFF);
  char* bytes = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(pixbuf, &bytes, &size, format, nullptr, nullptr);
  auto data = taken(bytes, size);
  g_free(bytes);
  g_object_unref(right);
  g_object_unref(pixbuf);
  return data;
}

kvl::Data madeGIF(int pictures) {
  std::string file("GIF89a\x20\0\x10\0\x80\0\0\xFF\0\0\0\0\xFF", 19);
  for (int i = 0; i < pictures; ++i) file += pictureBlock(i > 0);
  return kvl::Data::fromText(file + ';');
}

kvl::Data madeWebP() {
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < kWidth * kHeight; ++i) {
    const bool left = i % kWidth < kWidth / 2;
    pixels.insert(pixels.end(), {std::uint8_t(left ? 255 : 0), 0, std::uint8_t(left ? 0 : 255)});
  }
  std::uint8_t* bytes = nullptr;
  const auto size = WebPEncodeLosslessRGB(pixels.data(), kWidth, kHeight, kWidth * 3, &bytes);
  auto data = taken(bytes, size);
  WebPFree(bytes);
  return data;
}

kvl::Data madeSVG() {
  return writtenSVG("width='32' height='16'",
                    "<rect width='16' height='16' fill='#f00'/>"
                    "<rect x='16' width='16' height='16' fill='#00f'/>");
}

kvl::Data madePDF() {
  return writtenPDF("0 0 32 16", "1 0 0 rg 0 0 16 16 re f 0 0 1 rg 16 0 16 16 re f");
}

std::array<MadeImage, 9> madeImages() {
  return {{{"PNG", madePixbuf("png", kWidth, kHeight)},
           {"JPEG", madePixbuf("jpeg", kWidth, kHeight)},
           {"TIFF", madePixbuf("tiff", kWidth, kHeight)},
           {"GIF", madeGIF(2)},
           {"WebP", madeWebP()},
           {"BMP", madePixbuf("bmp", kWidth, kHeight)},
           {"ICO", madePixbuf("ico", kWidth, kHeight)},
           {"SVG", madeSVG()},
           {"PDF", madePDF()}}};
}

kvl::Data writtenPDF(std::string_view mediaBox, std::string_view content,
                     std::string_view resource) {
  const std::array<std::string, 5> objects{
      "<</Type/Catalog/Pages 2 0 R>>", "<</Type/Pages/Kids[3 0 R]/Count 1>>",
      "<</Type/Page/Parent 2 0 R/MediaBox[" + std::string(mediaBox) +
          "]/Resources<</XObject<</R 5 0 R>>/Pattern<</R 5 0 R>>>>/Contents 4 0 R>>",
      "<</Length " + std::to_string(content.size()) + ">>stream\n" + std::string(content) +
          "\nendstream",
      std::string(resource)};
  std::string file = "%PDF-1.4\n";
  std::string table = "xref\n0 6\n0000000000 65535 f \n";
  for (std::size_t i = 0; i < objects.size(); ++i) {
    const auto offset = std::to_string(file.size());
    table += std::string(10 - offset.size(), '0') + offset + " 00000 n \n";
    file += std::to_string(i + 1) + " 0 obj\n" + objects.at(i) + "\nendobj\n";
  }
  return kvl::Data::fromText(file + table + "trailer<</Size 6/Root 1 0 R>>\nstartxref\n" +
                             std::to_string(file.size()) + "\n%%EOF\n");
}

kvl::Data writtenSVG(std::string_view attributes, std::string_view elements) {
  return kvl::Data::fromText(
      "<svg xmlns='http://www.w3.org/2000/svg' "
      "xmlns:xlink='http://www.w3.org/1999/xlink' " +
      std::string(attributes) + ">" + std::string(elements) + "</svg>");
}

Pixel pixelAt(const kvl::Bitmap& bitmap, std::uint32_t x, std::uint32_t y) {
  const auto* const bytes = bitmap.pixels.data() + y * bitmap.stride() + std::size_t{x} * 4;
  return {bytes[0], bytes[1], bytes[2], bytes[3]};
}

}  // namespace kvltest
