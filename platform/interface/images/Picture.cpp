#include "platform/interface/images/Picture.h"

#include "platform/interface/images/Sniffing.h"

namespace kvl::images {

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
