// Images in the processes of a false decoder, which does as their bytes tell it.
#pragma once

#include "platform/interface/client/ImageDecoding.h"
#include "tests/interface/ImageFolder.h"
#include "tests/support/ProcessFigures.h"

#include <local/platform/Data.h>

#include <memory>
#include <string>
#include <string_view>

namespace kvltest {

using kvl::interface::ImageDecoding;
using kvl::interface::ImageSource;
using SourcePtr = std::shared_ptr<ImageSource>;

inline SourcePtr sourceOf(std::string_view order,
                          kvl::interface::ImageFormat format = kvl::interface::ImageFormat::kSVG) {
  return std::make_shared<ImageSource>(kvl::Data::fromText(order), format);
}

inline ImageDecoding::Options falseOptions(
    const std::filesystem::path& program = KVL_FALSE_DECODER) {
  ImageDecoding::Options options;
  options.places = {program};
  return options;
}

}  // namespace kvltest
