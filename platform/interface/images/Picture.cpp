#include "platform/interface/images/Picture.h"

#include <string_view>

namespace kvl::images {
namespace {

// What a file is, told by its first bytes. Only what is listed here reaches a decoder.
enum class Format { kUnknown, kPNG, kJPEG, kGIF, kTIFF, kWebP, kSVG, kPDF };

// Readers of PDF accept what some writers put before the header.
constexpr std::size_t kPDFHeaderReach = 1024;

bool isMarkup(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  const auto start = text.find_first_not_of(" \t\r\n");
  return start != std::string_view::npos && text[start] == '<';
}

// Any document of markup counts as SVG until its decoder has seen the root element.
Format formatOf(Span bytes) {
  using namespace std::string_view_literals;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (text.starts_with("\x89PNG\r\n\x1a\n"sv)) return Format::kPNG;
  if (text.starts_with("\xFF\xD8\xFF"sv)) return Format::kJPEG;
  if (text.starts_with("GIF87a"sv) || text.starts_with("GIF89a"sv)) return Format::kGIF;
  if (text.starts_with("II*\0"sv) || text.starts_with("MM\0*"sv)) return Format::kTIFF;
  if (text.starts_with("RIFF"sv) && text.substr(0, 12).ends_with("WEBP"sv)) return Format::kWebP;
  if (text.substr(0, kPDFHeaderReach).find("%PDF-"sv) != std::string_view::npos) {
    return Format::kPDF;
  }
  return isMarkup(text) ? Format::kSVG : Format::kUnknown;
}

}  // namespace

PicturePtr decode(Span bytes) {
  if (bytes.size() > kMaximumImageBytes) return nullptr;
  switch (formatOf(bytes)) {
    case Format::kPNG:
      return decodePNG(bytes);
    case Format::kJPEG:
      return decodeJPEG(bytes);
    case Format::kGIF:
      return decodeGIF(bytes);
    case Format::kTIFF:
      return decodeTIFF(bytes);
    case Format::kWebP:
      return decodeWebP(bytes);
    case Format::kSVG:
      return decodeSVG(bytes);
    case Format::kPDF:
      return decodePDF(bytes);
    case Format::kUnknown:
      break;
  }
  return nullptr;
}

}  // namespace kvl::images
