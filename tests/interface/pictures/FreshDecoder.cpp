// Draws image files in a process that has loaded the decoders and can open nothing any more. Fails
// with what cannot be drawn then.
#include "platform/interface/pictures/Picture.h"
#include "tests/support/NoDescriptors.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

using FileBytes = std::vector<std::uint8_t>;

FileBytes bytesOf(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return FileBytes(std::istreambuf_iterator<char>(file), {});
}

bool isDrawn(const FileBytes& bytes) {
  const auto picture = kvl::pictures::decode(kvl::interface::imageFormatOf(bytes), bytes);
  std::array<std::uint8_t, std::size_t{4} * 8 * 8> pixels{};
  return picture && picture->draw({pixels, 8, 8}) && pixels[3] == 255;
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<FileBytes> files;
  for (int i = 1; i < count; ++i) files.push_back(bytesOf(arguments[i]));
  kvl::pictures::loadDecoders();
  int failed = 0;
  {
    const kvltest::NoDescriptors none(kvltest::kLeftToSanitizers);
    for (std::size_t i = 0; i < files.size(); ++i) {
      if (isDrawn(files[i])) continue;
      std::fprintf(stderr, "%s is not drawn\n", arguments[i + 1]);
      ++failed;
    }
  }
  return failed;
}
