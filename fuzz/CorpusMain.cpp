// Runs a fuzz target on each file of some folders, in builds without libFuzzer.
#include "fuzz/Target.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

std::size_t runFolder(const kvl::fuzz::Target& target, const char* folder) {
  std::size_t inputs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    target.run({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    ++inputs;
  }
  return inputs;
}

}  // namespace

// kvl_fuzz_corpus TARGET FOLDER...
int main(int count, char** arguments) {
  const auto* target = count < 3 ? nullptr : kvl::fuzz::Target::named(arguments[1]);
  if (target == nullptr) return 2;
  std::size_t inputs = 0;
  for (int i = 2; i < count; ++i) inputs += runFolder(*target, arguments[i]);
  std::printf("%zu inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
