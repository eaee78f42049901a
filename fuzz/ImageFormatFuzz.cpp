// Any first bytes: what follows the first KiB changes nothing, and more bytes change nothing that
// is certain.
#include "fuzz/Target.h"
#include "platform/interface/protocol/ImageFormat.h"

#include <algorithm>
#include <vector>

namespace {

using kvl::fuzz::require;
using kvl::interface::ImageFormat;
using kvl::interface::imageFormatOf;

constexpr std::size_t kReach = 1024;

void checkFormat(kvl::fuzz::Input input) {
  const auto format = imageFormatOf(input);
  require(!nameOf(format).empty(), "it has a name");
  require(imageFormatOf(input.first(std::min(input.size(), kReach))) == format,
          "the first KiB says all");
  std::vector<std::uint8_t> longer(input.begin(), input.end());
  longer.resize(std::max(input.size(), kReach), 'x');
  const auto full = imageFormatOf(longer);
  longer.insert(longer.end(), {'%', 'P', 'D', 'F', '-', '<'});
  require(imageFormatOf(longer) == full, "what follows the first KiB does not count");
  // The mark of a PDF may come late.
  require(format == ImageFormat::kUnknown || full == format || full == ImageFormat::kPDF,
          "what is known stays");
  for (std::size_t size = 0; size < std::min<std::size_t>(input.size(), 16); ++size) {
    const auto early = imageFormatOf(input.first(size));
    require(early == ImageFormat::kUnknown || early == format || format == ImageFormat::kPDF,
            "what a beginning says stays");
  }
}

const kvl::fuzz::Target imageFormat("imageformat", checkFormat);

}  // namespace
