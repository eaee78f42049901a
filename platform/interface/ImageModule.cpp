#include "platform/interface/ImageModule.h"

#include <local/platform/Log.h>

#include <dlfcn.h>

#include <algorithm>
#include <string>

namespace kvl::interface {
namespace {

// The file that this code came from. For a program the loader knows the name it was called by,
// which may lack the folder.
std::filesystem::path thisFile() {
  Dl_info info{};
  std::error_code error;
  const bool known =
      dladdr(reinterpret_cast<const void*>(&imageModulePlaces), &info) != 0 && info.dli_fname;
  const std::filesystem::path file = known ? info.dli_fname : "";
  return std::filesystem::canonical(file.has_parent_path() ? file : "/proc/self/exe", error);
}

const KVLImageFunctions* functionsIn(void* module) {
  const auto entryPoint = reinterpret_cast<KVLImageEntryPoint>(dlsym(module, kImageEntryPointName));
  return entryPoint ? entryPoint(kImageModuleVersion) : nullptr;
}

}  // namespace

std::vector<std::filesystem::path> imageModulePlaces() {
  const auto folder = thisFile().parent_path();
  return {folder / kImageModuleFile, folder.parent_path() / "lib" / kImageModuleFile};
}

const KVLImageFunctions* loadImageModule(const std::vector<std::filesystem::path>& places) {
  std::error_code error;
  const auto place = std::ranges::find_if(
      places, [&error](const auto& file) { return std::filesystem::exists(file, error); });
  if (place == places.end()) {
    log("no images: there is no %@", kImageModuleFile);
    return nullptr;
  }
  void* const module = dlopen(place->c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (module == nullptr) {
    log("no images: %@", static_cast<const char*>(dlerror()));
    return nullptr;
  }
  const auto* const functions = functionsIn(module);
  if (functions == nullptr) log("no images: %@ is of another version", place->string());
  return functions;
}

const KVLImageFunctions* imageModule() {
  static const auto* const functions = loadImageModule(imageModulePlaces());
  return functions;
}

}  // namespace kvl::interface
