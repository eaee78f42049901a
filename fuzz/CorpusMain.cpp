// In the place of libFuzzer in builds without it: runs the target on each file of some folders.
#include "fuzz/EntryPoints.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

std::size_t runFolder(const char* folder) {
  std::size_t inputs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++inputs;
  }
  return inputs;
}

}  // namespace

// kvl_fuzz --target=NAME FOLDER...
int main(int count, char** arguments) {
  LLVMFuzzerInitialize(&count, &arguments);
  std::size_t inputs = 0;
  for (int i = 1; i < count; ++i)
    if (!std::string_view(arguments[i]).starts_with('-')) inputs += runFolder(arguments[i]);
  std::printf("%zu inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
