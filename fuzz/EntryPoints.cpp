// What libFuzzer calls, or `CorpusMain.cpp` in its place. --target=NAME says which target runs.
#include "fuzz/EntryPoints.h"

#include "fuzz/Target.h"

namespace {

const kvl::fuzz::Target* chosen = nullptr;

}  // namespace

int LLVMFuzzerInitialize(int* count, char*** arguments) {
  constexpr std::string_view kOption = "--target=";  // libFuzzer passes over two hyphens
  for (int i = 1; i < *count; ++i) {
    const std::string_view argument = (*arguments)[i];
    if (argument.starts_with(kOption))
      chosen = kvl::fuzz::Target::named(argument.substr(kOption.size()));
  }
  kvl::fuzz::require(chosen != nullptr, "--target names a target");
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  chosen->run({data, size});
  return 0;
}

// The fonts that texts in drawings are drawn with stay loaded, where the sanitizer does not see
// them.
const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\n";
}
