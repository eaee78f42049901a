#include "platform/core/NoDestructor.h"

#include <local/platform/Atomic.h>
#include <local/platform/HostApplication.h>

#include <gio/gio.h>

namespace kvl {
namespace {

Atomic<std::string>& identifier() {
  static NoDestructor<Atomic<std::string>> text;
  return *text;
}

}  // namespace

void setHostIdentifier(std::string_view text) {
  identifier().set(std::string(text));
}

std::optional<std::string> hostIdentifier() {
  if (auto text = identifier().get(); !text.empty()) return text;
  GApplication* application = g_application_get_default();
  const char* id = application != nullptr ? g_application_get_application_id(application) : nullptr;
  if (id == nullptr || *id == '\0') return std::nullopt;
  return std::string(id);
}

}  // namespace kvl
