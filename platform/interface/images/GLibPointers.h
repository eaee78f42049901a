// Owners for what GLib and cairo hand out.
#pragma once

#include <cairo.h>
#include <glib-object.h>

#include <memory>

namespace kvl::images {

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

}  // namespace kvl::images
