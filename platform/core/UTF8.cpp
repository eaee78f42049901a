#include "platform/core/UTF8.h"

#include "platform/core/ProcessExit.h"

#include <glib.h>
#include <simdjson.h>

namespace kvl::core {
namespace {

bool prepareLibrary() noexcept {
  const bool works = simdjson::validate_utf8("", 0);  // makes them
  standBeforeStatics();
  return works;
}

// GLib takes a NUL for the end.
bool isUTF8WithoutLibrary(std::string_view bytes) noexcept {
  while (true) {
    const auto piece = bytes.substr(0, bytes.find('\0'));
    if (g_utf8_validate_len(piece.data(), piece.size(), nullptr) == FALSE) return false;
    if (piece.size() == bytes.size()) return true;
    bytes.remove_prefix(piece.size() + 1);
  }
}

}  // namespace

bool isUTF8(std::string_view bytes) noexcept {
  static const bool prepared = prepareLibrary();
  static_cast<void>(prepared);
  // What simdjson chooses between are static objects.
  if (isExiting()) return isUTF8WithoutLibrary(bytes);
  return simdjson::validate_utf8(bytes.data(), bytes.size());
}

}  // namespace kvl::core
