#include "platform/core/NoDestructor.h"

#include <local/platform/Atomic.h>
#include <local/platform/HostApplication.h>

#include <dlfcn.h>

#include <memory>

namespace kvl {
namespace {

Atomic<std::string>& identifier() {
  static NoDestructor<Atomic<std::string>> text;
  return *text;
}

// Whoever has an application of GIO's has GIO in the process. It is not brought in for the
// question.
std::optional<std::string> applicationIdentifier() {
  struct Close {
    void operator()(void* library) const noexcept { dlclose(library); }
  };
  const std::unique_ptr<void, Close> library(
      dlopen("libgio-2.0.so.0", RTLD_LAZY | RTLD_LOCAL | RTLD_NOLOAD));
  if (!library) return std::nullopt;
  const auto application =
      reinterpret_cast<void* (*)()>(dlsym(library.get(), "g_application_get_default"));
  const auto name = reinterpret_cast<const char* (*)(void*)>(
      dlsym(library.get(), "g_application_get_application_id"));
  void* const found = application != nullptr && name != nullptr ? application() : nullptr;
  const char* const text = found != nullptr ? name(found) : nullptr;
  if (text == nullptr || *text == '\0') return std::nullopt;
  return text;
}

}  // namespace

void setHostIdentifier(std::string_view text) {
  identifier().set(std::string(text));
}

std::optional<std::string> hostIdentifier() {
  if (auto text = identifier().get(); !text.empty()) return text;
  return applicationIdentifier();
}

}  // namespace kvl
