// A reference to an object of GLib's that goes with its holder.
#pragma once

#include <glib-object.h>

#include <memory>

namespace gtkhost {

struct Unreference {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class Type>
using Owned = std::unique_ptr<Type, Unreference>;

}  // namespace gtkhost
