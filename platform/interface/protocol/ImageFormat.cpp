#include "platform/interface/protocol/ImageFormat.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace kvl::interface {
namespace {

using namespace std::string_view_literals;

// Readers of PDF accept what some writers put before the header.
constexpr std::size_t kReach = 1024;

bool isMarkup(std::string_view text) {
  const auto start = text.find_first_not_of(" \t\r\n");
  return start != std::string_view::npos && text[start] == '<';
}

// `high` is the place of a code unit's high byte, 0 or 1.
bool isWideMarkup(std::string_view text, std::size_t high) {
  std::string narrow;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    narrow += text[i + high] == '\0' ? text[i + 1 - high] : '\x7F';
  }
  return isMarkup(narrow);
}

// Without a mark of the byte order, UTF-16 is told by its first character.
bool isMarkupInAnyEncoding(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF"sv)) return isMarkup(text.substr(3));
  if (text.starts_with("\xFF\xFE"sv)) return isWideMarkup(text.substr(2), 1);
  if (text.starts_with("\xFE\xFF"sv)) return isWideMarkup(text.substr(2), 0);
  return isMarkup(text) || text.starts_with("\0<"sv);
}

struct Signature {
  std::string_view bytes;
  ImageFormat format;
};

// Each long enough that no text begins with it.
constexpr Signature kSignatures[] = {{"\x89PNG\r\n\x1a\n"sv, ImageFormat::kPNG},
                                     {"\xFF\xD8\xFF"sv, ImageFormat::kJPEG},
                                     {"GIF87a"sv, ImageFormat::kGIF},
                                     {"GIF89a"sv, ImageFormat::kGIF},
                                     {"II*\0"sv, ImageFormat::kTIFF},
                                     {"MM\0*"sv, ImageFormat::kTIFF},
                                     {"\0\0\1\0"sv, ImageFormat::kICO},
                                     {"\x1F\x8B\x08"sv, ImageFormat::kSVG}};

}  // namespace

ImageFormat imageFormatOf(Span bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()),
                              std::min(bytes.size(), kReach));
  for (const auto& [start, format] : kSignatures) {
    if (text.starts_with(start)) return format;
  }
  // Four bytes of the file's size stand between.
  if (text.starts_with("RIFF"sv) && text.substr(4).find("WEBP"sv) == 4) return ImageFormat::kWebP;
  if (text.find("%PDF-"sv) != std::string_view::npos) return ImageFormat::kPDF;
  if (text.starts_with("BM"sv)) return ImageFormat::kBMP;
  return isMarkupInAnyEncoding(text) ? ImageFormat::kSVG : ImageFormat::kUnknown;
}

std::string_view nameOf(ImageFormat format) {
  constexpr std::string_view kNames[] = {"unknown", "PNG", "JPEG", "GIF", "TIFF",
                                         "WebP",    "BMP", "ICO",  "SVG", "PDF"};
  const auto index = static_cast<std::size_t>(format);
  return index < std::size(kNames) ? kNames[index] : kNames[0];
}

}  // namespace kvl::interface
