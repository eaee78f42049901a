#include <local/KVLExtensionsImage.h>

#include <algorithm>

void KVLExtensions::scaleImage(kvl::Image& image, kvl::Size size) {
  const auto [width, height] = image.size();
  const double factor = std::min(size.width, size.height) / std::max(width, height);
  image.setSize({width * factor, height * factor});
}
