#include "platform/interface/ImageModule.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/Threads.h"

#include <local/platform/Log.h>
#include <local/platform/Mutex.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace kvl::interface {
namespace {

// The file that this code came from, by its mapping: the loader knows only the name that it was
// opened by, which may count from a folder that the process has left.
std::filesystem::path thisFile() {
  const auto here = reinterpret_cast<std::uintptr_t>(&imageModulePlaces);
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

const KVLImageFunctions* functionsIn(void* module) {
  const auto entryPoint = reinterpret_cast<KVLImageEntryPoint>(dlsym(module, kImageEntryPointName));
  return entryPoint ? entryPoint(kImageModuleVersion) : nullptr;
}

}  // namespace

std::vector<std::filesystem::path> imageModulePlaces() {
  const auto folder = thisFile().parent_path();
  if (folder.empty()) return {};
  return {folder / kImageModuleFile, folder.parent_path() / "lib" / kImageModuleFile};
}

const KVLImageFunctions* loadImageModule(const std::vector<std::filesystem::path>& places) {
  std::error_code error;
  const auto place = std::ranges::find_if(places, [&error](const auto& file) {
    return file.is_absolute() && std::filesystem::exists(file, error);
  });
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
  struct Module {
    Mutex mutex;
    bool isKnown KVL_GUARDED_BY(mutex) = false;
    const KVLImageFunctions* functions KVL_GUARDED_BY(mutex) = nullptr;
  };
  static NoDestructor<Module> module;
  const MutexLock lock(module->mutex);
  if (module->isKnown) return module->functions;
  if (!core::hasSpareDescriptors()) {
    log("no images: no descriptor is left");
    return nullptr;
  }
  module->functions = loadImageModule(imageModulePlaces());
  module->isKnown = true;
  return module->functions;
}

}  // namespace kvl::interface
