// Owners for what GLib hands out.
#pragma once

#include <gio/gio.h>

#include <memory>

namespace kvl::ipc {

struct GLibRelease {
  void operator()(GError* error) const noexcept { g_error_free(error); }
  void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }
  void operator()(GDBusConnection* connection) const noexcept { g_object_unref(connection); }
  void operator()(GCancellable* cancellable) const noexcept { g_object_unref(cancellable); }
  void operator()(char* text) const noexcept { g_free(text); }
};

using ErrorPtr = std::unique_ptr<GError, GLibRelease>;
using VariantPtr = std::unique_ptr<GVariant, GLibRelease>;
using BusPtr = std::unique_ptr<GDBusConnection, GLibRelease>;
using CancellablePtr = std::unique_ptr<GCancellable, GLibRelease>;
using TextPtr = std::unique_ptr<char, GLibRelease>;

}  // namespace kvl::ipc
