// Owners of GLib's objects and values.
#pragma once

#include <gio/gio.h>

#include <memory>

namespace kvl::security {

struct GLibDeleter {
  void operator()(GError* error) const noexcept { g_error_free(error); }
  void operator()(GHashTable* table) const noexcept { g_hash_table_unref(table); }
  void operator()(GMainContext* context) const noexcept { g_main_context_unref(context); }
  void operator()(GVariant* value) const noexcept { g_variant_unref(value); }
  void operator()(char* text) const noexcept { g_free(text); }
};
template <class T>
using GLibPtr = std::unique_ptr<T, GLibDeleter>;

struct ObjectDeleter {
  template <class T>
  void operator()(T* object) const noexcept {
    g_object_unref(object);
  }
};
template <class T>
using ObjectPtr = std::unique_ptr<T, ObjectDeleter>;

// Receives the error of one call after another.
class ErrorSlot {
 public:
  ErrorSlot() = default;
  ~ErrorSlot() { g_clear_error(&error_); }
  ErrorSlot(const ErrorSlot&) = delete;
  ErrorSlot& operator=(const ErrorSlot&) = delete;

  // Empties the slot for the next call.
  [[nodiscard]] GError** out() noexcept {
    g_clear_error(&error_);
    return &error_;
  }
  [[nodiscard]] const GError* get() const noexcept { return error_; }

 private:
  GError* error_ = nullptr;
};

}  // namespace kvl::security
