// What the decoders load and read later, so that none needs a file once the process is confined.
#include "platform/interface/pictures/BitmapPicture.h"
#include "platform/interface/pictures/Memory.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <thread>
#include <vector>

namespace kvl::pictures {
namespace {

using interface::ImageFormat;
using namespace std::string_view_literals;

constexpr auto kGIF = "GIF89a\1\0\1\0\x80\0\0\0\0\0\xFF\xFF\xFF,\0\0\0\0\1\0\1\0\0\2\2D\1\0;"sv;
// The pictures within ask for what tells the kind of a file, and for the loader of such.
constexpr auto kSVG =
    "<svg xmlns='http://www.w3.org/2000/svg' width='8' height='8'><g opacity='.5'>"
    "<path d='M0 0h8v8z' fill='#123'/></g><image width='1' height='1' href='data:image/png;base64,"
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAAAAAA6fptVAAAACklEQVR4nGNgAAAAAgABSK+kcQAAAABJRU5ErkJggg=="
    "'/><image width='1' height='1' href=\"data:image/svg+xml,%3Csvg xmlns='http://www.w3.org/2000/"
    "svg' width='1' height='1'/%3E\"/></svg>"sv;
constexpr auto kSVGText =
    "<svg xmlns='http://www.w3.org/2000/svg' width='8' height='8'><text y='8'>A</text></svg>"sv;
constexpr auto kPDF =
    "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
    "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
    "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 8 8]/Contents 4 0 R/Resources<<>>>>endobj\n"
    "4 0 obj<</Length 11>>stream\n0 0 4 4 re f\nendstream endobj\n"
    "trailer<</Root 1 0 R>>\n%%EOF\n"sv;
constexpr auto kPDFText =
    "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
    "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
    "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 8 8]/Contents 4 0 R/Resources<</Font<</F "
    "<</Type/Font/Subtype/Type1/BaseFont/Helvetica>>>>>>>>endobj\n"
    "4 0 obj<</Length 25>>stream\nBT /F 8 Tf (A) Tj ET     \nendstream endobj\n"
    "trailer<</Root 1 0 R>>\n%%EOF\n"sv;

void drawOnce(ImageFormat format, Span bytes) {
  const auto picture = decode(format, bytes);
  if (!picture) return;
  std::array<std::uint8_t, std::size_t{4} * 8 * 8> pixels{};
  static_cast<void>(picture->draw({pixels, 8, 8}));
}

void drawOnce(ImageFormat format, std::string_view text) {
  drawOnce(format, Span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

// Of one pixel, by the library's own encoder.
void drawEncoded(ImageFormat format, const char* type) {
  const auto pixbuf = makePixbuf({1, 1}, false);
  if (!pixbuf) return;
  gdk_pixbuf_fill(pixbuf.get(), 0);
  char* bytes = nullptr;
  gsize size = 0;
  if (gdk_pixbuf_save_to_buffer(pixbuf.get(), &bytes, &size, type, nullptr, nullptr)) {
    drawOnce(format, std::string_view(bytes, size));
  }
  g_free(bytes);
}

bool hasOneThread() {
  std::error_code error;
  auto tasks = std::filesystem::directory_iterator("/proc/self/task", error);
  return error || ++tasks == std::filesystem::directory_iterator();
}

// The fonts are looked for on a thread that ends by itself. Whoever forks must not copy it.
void waitForOneThread() {
  using Clock = std::chrono::steady_clock;
  for (const auto end = Clock::now() + std::chrono::seconds(1);
       Clock::now() < end && !hasOneThread();) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

void loadDecoders() {
  watchMemory();
  drawEncoded(ImageFormat::kPNG, "png");
  drawEncoded(ImageFormat::kJPEG, "jpeg");
  drawEncoded(ImageFormat::kTIFF, "tiff");
  drawEncoded(ImageFormat::kBMP, "bmp");
  drawEncoded(ImageFormat::kICO, "ico");
  drawOnce(ImageFormat::kGIF, kGIF);
  drawOnce(ImageFormat::kSVG, kSVG);
  drawOnce(ImageFormat::kPDF, kPDF);
}

void warmText() {
  drawOnce(ImageFormat::kSVG, kSVGText);
  drawOnce(ImageFormat::kPDF, kPDFText);
  waitForOneThread();
}

}  // namespace kvl::pictures
