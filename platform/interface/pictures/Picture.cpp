#include "platform/interface/pictures/Picture.h"

#include "platform/interface/pictures/Decoders.h"
#include "platform/interface/pictures/Memory.h"

namespace kvl::pictures {

std::unique_ptr<Picture> decode(interface::ImageFormat format, Span bytes) {
  forgetLackOfMemory();
  switch (format) {
    case interface::ImageFormat::kUnknown:
      return nullptr;
    case interface::ImageFormat::kWebP:
      return decodeWebP(bytes);
    case interface::ImageFormat::kSVG:
      return decodeSVG(bytes);
    case interface::ImageFormat::kPDF:
      return decodePDF(bytes);
    default:
      return decodePixbuf(format, bytes);
  }
}

}  // namespace kvl::pictures
