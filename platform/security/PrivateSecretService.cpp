#include "platform/security/PrivateSecretService.h"

namespace kvl::security {
namespace {

constexpr auto kTypeName = "KVLPrivateSecretService";

GObjectClass* parentClass = nullptr;

// SecretService insists on the session bus's shared connection for every object that is made. Its
// wish is taken back while the object is still under construction; later it is fixed.
GObject* construct(GType type, guint count, GObjectConstructParam* parameters) {
  GObject* object = parentClass->constructor(type, count, parameters);
  g_object_set(object, "g-bus-type", G_BUS_TYPE_NONE, nullptr);
  return object;
}

void initialiseClass(gpointer klass, gpointer) {
  parentClass = G_OBJECT_CLASS(g_type_class_peek_parent(klass));
  G_OBJECT_CLASS(klass)->constructor = &construct;
}

GType privateServiceType() {
  static const GType type = g_type_register_static_simple(
      SECRET_TYPE_SERVICE, kTypeName, sizeof(SecretServiceClass), &initialiseClass,
      sizeof(SecretService), nullptr, static_cast<GTypeFlags>(0));
  return type;
}

}  // namespace

ObjectPtr<GDBusConnection> connectPrivately(GCancellable* cancellable, GError** error) {
  const GLibPtr<char> address(
      g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable, error));
  if (!address) return nullptr;
  constexpr int kFlags = G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION;
  return ObjectPtr<GDBusConnection>(g_dbus_connection_new_for_address_sync(
      address.get(), static_cast<GDBusConnectionFlags>(kFlags), nullptr, cancellable, error));
}

ObjectPtr<SecretService> openSecretService(GDBusConnection* connection, GCancellable* cancellable,
                                           GError** error) {
  return ObjectPtr<SecretService>(static_cast<SecretService*>(
      g_initable_new(privateServiceType(), cancellable, error, "g-connection", connection, "flags",
                     SECRET_SERVICE_OPEN_SESSION, nullptr)));
}

}  // namespace kvl::security
