// What the library and the module of image decoders know of each other: plain C, and a version.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

// A decoded picture. Any thread may use one at any time, but for its release.
struct KVLImagePicture;

struct KVLImageDescription {
  double width;   // in points, above 0
  double height;  // in points, above 0
  // The most pixels that it may be drawn with.
  std::uint64_t maximumPixels;
};

struct KVLImageFunctions {
  // Null when the bytes hold no image. The bytes must stay unchanged until the release.
  KVLImagePicture* (*decode)(const std::uint8_t* bytes, std::size_t size,
                             KVLImageDescription* description);
  // Draws the whole picture into `pixels`, which is 4 * width * height bytes of 0; afterwards they
  // are red, green, blue, alpha, premultiplied. False when that failed.
  bool (*draw)(KVLImagePicture* picture, std::uint32_t width, std::uint32_t height,
               std::uint8_t* pixels);
  void (*release)(KVLImagePicture* picture);
};

// The module's only symbol: its functions, or null when it does not know this version.
using KVLImageEntryPoint = const KVLImageFunctions* (*)(std::uint32_t version);

}  // extern "C"

namespace kvl::interface {

// Counts up with every change of the above.
inline constexpr std::uint32_t kImageModuleVersion = 1;
inline constexpr const char* kImageEntryPointName = "kvlImageFunctions";
inline constexpr const char* kImageModuleFile = "kvlocal/libkvlocal-images.so";

}  // namespace kvl::interface
