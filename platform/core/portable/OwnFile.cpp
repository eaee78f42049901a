#include "platform/core/OwnFile.h"

#include <dlfcn.h>

#include <system_error>

namespace kvl::core {
namespace {

// The loader knows the name that the file was opened by. One that counts from a folder means the
// one in which the process is when it first asks.
std::filesystem::path thisFile() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&placesBesideLibrary), &info) == 0) return {};
  std::error_code error;
  auto file = std::filesystem::canonical(info.dli_fname, error);
  return error ? std::filesystem::path() : file;
}

}  // namespace

std::vector<std::filesystem::path> placesBesideLibrary(std::string_view name) {
  static const auto folder = new std::filesystem::path(thisFile().parent_path());
  if (folder->empty()) return {};
  return {*folder / name, folder->parent_path() / "lib" / name};
}

}  // namespace kvl::core
