#include "platform/ipc/BusCalls.h"

#include <limits>
#include <memory>
#include <utility>

namespace kvl::ipc {
namespace {

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusObject = "/org/freedesktop/DBus";
constexpr int kNoTimeLimit = std::numeric_limits<int>::max();

using Connected = std::function<void(BusPtr, ErrorPtr)>;
using Answered = std::function<void(VariantPtr, ErrorPtr)>;

std::string runtimeDirectoryBusAddress() {
  const char* directory = g_getenv("XDG_RUNTIME_DIR");
  if (directory == nullptr || *directory == '\0') return {};
  const TextPtr path(g_build_filename(directory, "bus", nullptr));
  if (!g_file_test(path.get(), G_FILE_TEST_EXISTS)) return {};
  const TextPtr escaped(g_dbus_address_escape_value(path.get()));
  return std::string("unix:path=") + escaped.get();
}

// The same places in which GIO looks. Only the last resort, asking a helper program, may take time,
// and with that address it is done while connecting, off this thread.
std::string sessionBusAddress() {
  const char* address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && *address != '\0') return address;
  std::string fromDirectory = runtimeDirectoryBusAddress();
  return fromDirectory.empty() ? "autolaunch:" : fromDirectory;
}

void connected(GObject*, GAsyncResult* result, gpointer data) noexcept {
  const std::unique_ptr<Connected> then(static_cast<Connected*>(data));
  GError* error = nullptr;
  BusPtr bus(g_dbus_connection_new_for_address_finish(result, &error));
  if (bus) g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  (*then)(std::move(bus), ErrorPtr(error));
}

void answered(GObject* source, GAsyncResult* result, gpointer data) noexcept {
  const std::unique_ptr<Answered> then(static_cast<Answered*>(data));
  GError* error = nullptr;
  VariantPtr reply(
      g_dbus_connection_call_finish(reinterpret_cast<GDBusConnection*>(source), result, &error));
  (*then)(std::move(reply), ErrorPtr(error));
}

}  // namespace

void connectToSessionBus(GCancellable* cancellable, Connected then) {
  constexpr auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  g_dbus_connection_new_for_address(sessionBusAddress().c_str(), flags, nullptr, cancellable,
                                    connected, new Connected(std::move(then)));
}

void callMethod(GDBusConnection* bus, const BusMethod& method, GVariant* arguments,
                GCancellable* cancellable, Answered then) {
  g_dbus_connection_call(bus, method.destination.c_str(), method.object.c_str(),
                         method.interface.c_str(), method.name, arguments,
                         reinterpret_cast<const GVariantType*>(method.replyType),
                         G_DBUS_CALL_FLAGS_NO_AUTO_START, kNoTimeLimit, cancellable, answered,
                         new Answered(std::move(then)));
}

BusMethod busMethod(const char* name, const char* replyType) {
  return {kBusName, kBusObject, kBusName, name, replyType};
}

}  // namespace kvl::ipc
