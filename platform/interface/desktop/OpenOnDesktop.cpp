#include "platform/interface/desktop/OpenOnDesktop.h"

#include <local/platform/Log.h>

#include <gio/gio.h>

namespace kvl::interface {

bool openOnDesktop(const std::string& url) {
  GError* error = nullptr;
  if (g_app_info_launch_default_for_uri(url.c_str(), nullptr, &error) != FALSE) return true;
  log(LogCategory::desktop, LogLevel::error, "error opening URL: %@: %@", url, error->message);
  g_error_free(error);
  return false;
}

}  // namespace kvl::interface
