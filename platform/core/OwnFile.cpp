#include "platform/core/OwnFile.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace kvl::core {
namespace {

// The file that this code came from, by its mapping: the loader knows only the name that it was
// opened by, which may count from a folder that the process has left.
std::filesystem::path lookUpThisFile() {
  const auto here = reinterpret_cast<std::uintptr_t>(&placesBesideLibrary);
  std::ifstream mappings("/proc/self/maps");
  for (std::string line; std::getline(mappings, line);) {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    char dash = 0;
    std::istringstream(line) >> std::hex >> begin >> dash >> end;
    if (here < begin || here >= end) continue;
    return line.substr(std::min(line.find('/'), line.size()));
  }
  return {};
}

// The first answer stays: a program with windows has hundreds of mappings.
std::filesystem::path thisFile() {
  static std::atomic<const std::filesystem::path*> known = nullptr;
  if (const auto* path = known.load()) return *path;
  auto found = std::make_unique<const std::filesystem::path>(lookUpThisFile());
  if (found->empty()) return {};
  const std::filesystem::path* none = nullptr;
  if (known.compare_exchange_strong(none, found.get())) return *found.release();
  return *none;
}

}  // namespace

std::vector<std::filesystem::path> placesBesideLibrary(std::string_view name) {
  const auto folder = thisFile().parent_path();
  if (folder.empty()) return {};
  return {folder / name, folder.parent_path() / "lib" / name,
#ifdef KVL_INSTALLED_BESIDE  // the library is a part of some program
          std::filesystem::path(KVL_INSTALLED_BESIDE) / name
#endif
  };
}

}  // namespace kvl::core
