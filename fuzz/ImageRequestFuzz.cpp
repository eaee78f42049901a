// Any packet at the reader of an image decoder's process: it is refused, or says just what its
// bytes say.
#include "fuzz/Fields.h"
#include "fuzz/Target.h"
#include "platform/interface/protocol/ImageMessage.h"

#include <local/platform/Image.h>

#include <cstring>

namespace {

using kvl::Bytes;
using kvl::fuzz::at;
using kvl::fuzz::require;
namespace image = kvl::interface;

// Another reading of the flags.
void checkFlags(const image::ImageRequest& request, std::uint32_t flags, std::size_t descriptors) {
  const bool follow = (flags & 1) != 0;
  const bool inFile = (flags & 2) != 0;
  const bool draws = (flags & 4) != 0;
  const bool intoFile = (flags & 8) != 0;
  require(flags < 16, "there are four flags");
  require(!(follow && inFile), "bytes come one way");
  require(follow == !request.inlineBytes.empty(), "bytes follow when that is said");
  require((follow || inFile) == (request.byteCount > 0), "bytes come when there are some");
  require(!follow || request.inlineBytes.size() == request.byteCount, "all of them follow");
  require(draws == request.drawing.has_value(), "it is drawn when that is said");
  require(intoFile == request.pixelsInFile && (draws || !intoFile), "only pixels need a file");
  require(descriptors == std::size_t{inFile} + std::size_t{intoFile}, "each file is there");
}

void checkLimits(const image::ImageRequest& request) {
  require(request.image != 0, "images are numbered from 1");
  require(request.byteCount <= kvl::kMaximumImageBytes, "the bytes are within their limit");
  require(request.inlineBytes.size() <= image::kInlineBytes, "long bytes are in a file");
  require(nameOf(request.format) != "unknown" || request.format == image::ImageFormat::kUnknown,
          "there is such a format");
  if (!request.drawing) return;
  const auto [width, height] = *request.drawing;
  require(width > 0 && width <= 65'535 && height > 0 && height <= 65'535,
          "the sides are within their limit");
  require(request.pixelsInFile || std::uint64_t{width} * height * 4 <= image::kInlineBytes,
          "many pixels are in a file");
}

void checkRequest(const Bytes& packet, std::size_t descriptors) {
  const auto request = image::readRequest(packet, descriptors);
  if (!request) return;
  require(image::kindOf(packet) == image::MessageKind::kRequest, "it is a request");
  checkFlags(*request, at<std::uint32_t>(packet, 28), descriptors);
  checkLimits(*request);
  require(!request->inlineBytes.empty() ? request->inlineBytes.data() == packet.data() + 48 &&
                                              request->inlineBytes.size() == packet.size() - 48
                                        : packet.size() == 48,
          "its bytes are those of the packet");
  Bytes again;
  write(*request, again);
  require(again == packet, "it is written as it was read");
}

void checkStart(const Bytes& packet, std::size_t descriptors) {
  const auto start = image::readStart(packet, descriptors);
  if (!start) return;
  Bytes again;
  write(*start, again);
  require(again == packet && descriptors == 1, "a start is written as it was read");
}

// The first byte says how many descriptors come, and whether the length is made right.
void checkPacket(kvl::fuzz::Input input) {
  if (input.empty()) return;
  Bytes packet(input.begin() + 1, input.end());
  if ((input[0] & 0x80) != 0 && packet.size() >= 4) {
    const auto length = static_cast<std::uint32_t>(packet.size());
    std::memcpy(packet.data(), &length, sizeof length);
  }
  checkRequest(packet, input[0] & 3);
  checkStart(packet, input[0] & 3);
}

const kvl::fuzz::Target imageRequest("imagerequest", checkPacket);

}  // namespace
