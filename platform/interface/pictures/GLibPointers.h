// Owners for what GLib and cairo hand out.
#pragma once

#include <cairo.h>
#include <glib-object.h>

#include <memory>

namespace kvl::pictures {

struct ObjectRelease {
  void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
// Of a GObject.
template <class T>
using ObjectPtr = std::unique_ptr<T, ObjectRelease>;

struct CairoRelease {
  void operator()(cairo_surface_t* surface) const noexcept { cairo_surface_destroy(surface); }
  void operator()(cairo_t* context) const noexcept { cairo_destroy(context); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, CairoRelease>;
using ContextPtr = std::unique_ptr<cairo_t, CairoRelease>;

// What a function of GLib said of its failure.
class FailureReason {
 public:
  FailureReason() = default;
  ~FailureReason() { g_clear_error(&error_); }
  FailureReason(const FailureReason&) = delete;
  FailureReason& operator=(const FailureReason&) = delete;

  [[nodiscard]] GError** slot() noexcept { return &error_; }
  [[nodiscard]] const GError* get() const noexcept { return error_; }

 private:
  GError* error_ = nullptr;
};

}  // namespace kvl::pictures
