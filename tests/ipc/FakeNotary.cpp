// A notary that does what its request says, for tests of the channel.
//
// Request entries: "reply" holds the text of the reply's body in GVariant's notation, of whatever
// type; "error" the name of a D-Bus error to answer with; "act" is "hang" or "exit". A request with
// none of them is answered with what arrived: the path, the request, whom it was sent to and how
// many came so far.
#include <gio/gio.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kName = "korvale.vandrel.local.notary";
constexpr const char* kObject = "/korvale/vandrel/local/notary";
constexpr const char* kInterface =
    "<node><interface name='korvale.vandrel.local.notaryProtocol'>"
    "<method name='SendNotary'>"
    "<arg type='as' direction='in'/><arg type='a{sv}' direction='in'/>"
    "<arg type='aa{sv}' direction='out'/><arg type='a(sxa{sv})' direction='out'/>"
    "</method></interface></node>";

int requests = 0;

const char* entry(GVariant* request, const char* key) {
  const char* text = nullptr;
  return g_variant_lookup(request, key, "&s", &text) ? text : nullptr;
}

// Past GDBus's own check of the signature.
void answerWith(GDBusMethodInvocation* invocation, GVariant* body) {
  GDBusMessage* call = g_dbus_method_invocation_get_message(invocation);
  GDBusMessage* reply = g_dbus_message_new_method_reply(call);
  g_dbus_message_set_body(reply, body);
  g_dbus_connection_send_message(g_dbus_method_invocation_get_connection(invocation), reply,
                                 G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(reply);
  g_object_unref(invocation);
}

GVariant* echo(GVariant* path, GVariant* request, GDBusMessage* call) {
  GVariantBuilder entries;
  g_variant_builder_init(&entries, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&entries, "{sv}", "path", path);
  g_variant_builder_add(&entries, "{sv}", "request", request);
  g_variant_builder_add(&entries, "{sv}", "requests", g_variant_new_int64(requests));
  g_variant_builder_add(&entries, "{sv}", "destination",
                        g_variant_new_string(g_dbus_message_get_destination(call)));
  GVariant* dictionary = g_variant_builder_end(&entries);
  GVariant* replies = g_variant_new_array(G_VARIANT_TYPE_VARDICT, &dictionary, 1);
  return g_variant_new("(@aa{sv}@a(sxa{sv}))", replies,
                       g_variant_new_array(G_VARIANT_TYPE("(sxa{sv})"), nullptr, 0));
}

void act(const char* what) {
  if (std::strcmp(what, "exit") == 0) _exit(0);
}

void called(GDBusConnection*, const char*, const char*, const char*, const char*,
            GVariant* parameters, GDBusMethodInvocation* invocation, gpointer) {
  ++requests;
  GVariant* path = g_variant_get_child_value(parameters, 0);
  GVariant* request = g_variant_get_child_value(parameters, 1);
  if (const char* what = entry(request, "act")) {
    act(what);
  } else if (const char* name = entry(request, "error")) {
    g_dbus_method_invocation_return_dbus_error(invocation, name, "told to");
  } else if (const char* reply = entry(request, "reply")) {
    answerWith(invocation, g_variant_parse(nullptr, reply, nullptr, nullptr, nullptr));
  } else {
    answerWith(invocation, echo(path, request, g_dbus_method_invocation_get_message(invocation)));
  }
  g_variant_unref(request);
  g_variant_unref(path);
}

}  // namespace

int main() {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (bus == nullptr) return 1;
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kInterface, nullptr);
  GDBusInterfaceVTable functions{};
  functions.method_call = called;
  g_dbus_connection_register_object(bus, kObject, node->interfaces[0], &functions, nullptr, nullptr,
                                    nullptr);
  g_bus_own_name_on_connection(bus, kName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr, nullptr,
                               nullptr);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
