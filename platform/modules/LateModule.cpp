#include "platform/modules/LateModule.h"

#include "platform/core/OwnFile.h"
#include "platform/core/ProcessExit.h"

#include <local/platform/Log.h>
#include <local/platform/Version.h>

#include <dlfcn.h>

#include <exception>
#include <filesystem>

namespace kvl::modules {
namespace {

// A library that was replaced under a running process must not meet the next version's modules.
using Entry = void* (*)(const char* version);

std::string loaderProblem() {
  const char* const text = dlerror();
  return text == nullptr ? "unknown" : text;
}

// Nowhere but in the library's own folder: a neighbour of that may be anybody's.
std::filesystem::path placeOf(const char* file) {
  const auto places = core::placesBesideLibrary(file);
  return !places.empty() && places.front().is_absolute() ? places.front() : std::filesystem::path();
}

}  // namespace

void* LateModule::load(std::string& problem) const {
  const auto place = placeOf(file_);
  if (place.empty()) {
    problem = "nobody knows where the library lies";
    return nullptr;
  }
  void* const module = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  void* const entry = module == nullptr ? nullptr : dlsym(module, name_);
  if (entry == nullptr) {
    problem = loaderProblem();
    return nullptr;
  }
  void* const part = reinterpret_cast<Entry>(entry)(KVL_VERSION_STRING);
  if (part == nullptr) {
    problem = "it is of another version";
    return nullptr;
  }
  core::standBeforeStatics();
  return part;
}

// Without a lock, which would be held while the loader takes its own: threads that come at the same
// time load the same module and get the same part.
void* LateModule::get() noexcept {
  if (void* const part = part_.load(std::memory_order_acquire)) return part;
  try {
    std::string problem;
    if (void* const part = load(problem)) {
      part_.store(part, std::memory_order_release);
      return part;
    }
    if (isNoted_.exchange(true)) return nullptr;
    log(LogCategory::general, LogLevel::error, "%@ is not to be had: %@", file_, problem);
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): no memory even for that
  }
  return nullptr;
}

}  // namespace kvl::modules
