#include "tests/ipc/ScriptedBus.h"

#include <gio/gunixsocketaddress.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace kvltest {
namespace {

constexpr const char* kOwner = ":1.7";

GVariant* bodyOfReply(const std::string& method) {
  if (method == "GetConnectionUnixUser") return g_variant_new("(u)", getuid());
  if (method == "StartServiceByName") return g_variant_new("(u)", 1U);
  if (method == "SendNotary") {
    return g_variant_new_parsed("(@aa{sv} [], @a(sxa{sv}) [])");
  }
  return g_variant_new("(s)", method == "GetNameOwner" ? kOwner : ":1.1");
}

// A socket that listens at `path`.
GSocket* listeningAt(const std::string& path) {
  GSocket* const socket =
      g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, nullptr);
  GSocketAddress* const address = g_unix_socket_address_new(path.c_str());
  const bool listens = g_socket_bind(socket, address, FALSE, nullptr) != FALSE &&
                       g_socket_listen(socket, nullptr) != FALSE;
  g_object_unref(address);
  if (!listens) throw std::runtime_error("the bus cannot listen");
  return socket;
}

}  // namespace

ScriptedBus::ScriptedBus()
    : path_((directory_.path() / "bus").string()),
      socket_(listeningAt(path_)),
      thread_([this] { acceptAll(); }) {}

ScriptedBus::~ScriptedBus() {
  g_cancellable_cancel(ended_);
  thread_.join();
  for (GDBusConnection* const client : clients_) {
    g_dbus_connection_close_sync(client, nullptr, nullptr);
    g_object_unref(client);
  }
  g_object_unref(socket_);
  g_object_unref(ended_);
  // What the closed connections had to say goes with them.
  while (g_main_context_iteration(context_, FALSE)) {
  }
  g_main_context_unref(context_);
}

std::string ScriptedBus::address() const {
  return "unix:path=" + path_;
}

void ScriptedBus::fail(const std::string& method, std::deque<std::string> errors) {
  const std::lock_guard lock(mutex_);
  failures_[method] = std::move(errors);
}

std::vector<std::string> ScriptedBus::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

void ScriptedBus::acceptAll() {
  g_main_context_push_thread_default(context_);
  char* const guid = g_dbus_generate_guid();
  while (GSocket* const accepted = g_socket_accept(socket_, ended_, nullptr)) {
    GSocketConnection* const stream = g_socket_connection_factory_create_connection(accepted);
    g_object_unref(accepted);
    constexpr auto kFlags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER |
                                          G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING);
    GDBusConnection* const client =
        g_dbus_connection_new_sync(G_IO_STREAM(stream), guid, kFlags, nullptr, ended_, nullptr);
    g_object_unref(stream);
    if (client == nullptr) continue;
    g_dbus_connection_add_filter(client, received, this, nullptr);
    g_dbus_connection_start_message_processing(client);
    clients_.push_back(client);
  }
  g_free(guid);
  g_main_context_pop_thread_default(context_);
}

GDBusMessage* ScriptedBus::received(GDBusConnection* client, GDBusMessage* message,
                                    gboolean incoming, gpointer self) {
  const bool isCall = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
  if (incoming == FALSE || !isCall) return message;
  static_cast<ScriptedBus*>(self)->answer(client, message);
  g_object_unref(message);
  return nullptr;
}

std::string ScriptedBus::noteAndFailure(const std::string& method, const char* destination) {
  if (method == "Hello") return {};
  const std::lock_guard lock(mutex_);
  calls_.push_back(method + " to " + destination);
  auto& failures = failures_[method];
  if (failures.empty()) return {};
  std::string first = std::move(failures.front());
  failures.pop_front();
  return first;
}

void ScriptedBus::answer(GDBusConnection* client, GDBusMessage* call) {
  const std::string method = g_dbus_message_get_member(call);
  const std::string failure = noteAndFailure(method, g_dbus_message_get_destination(call));
  if (failure == "close") return g_dbus_connection_close(client, nullptr, nullptr, nullptr);
  GDBusMessage* reply = nullptr;
  if (failure.empty()) {
    reply = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(reply, bodyOfReply(method));
  } else {
    reply = g_dbus_message_new_method_error_literal(call, failure.c_str(), "told to");
  }
  g_dbus_connection_send_message(client, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(reply);
}

}  // namespace kvltest
