// kvlocal-devnotary: a notary for people who develop a host, on the session bus.

#include "devservice/CommandLine.h"
#include "devservice/Log.h"
#include "devservice/notary/Notary.h"

#include <NotaryInterface.h>
#include <gio/gio.h>
#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <memory>
#include <string>

namespace devservice {
namespace {

constexpr const char* kName = "korvale.vandrel.local.notary";
constexpr const char* kObject = "/korvale/vandrel/local/notary";
constexpr const char* kErrorDomain = "NSPOSIXErrorDomain";
constexpr int kExitByFault = 70;

struct Context {
  Notary& notary;
  std::chrono::milliseconds delay;
  GMainLoop* loop;
  int status = 0;
};

struct Pending {
  Context& context;
  GDBusMethodInvocation* invocation;
};

std::optional<std::string> pathOf(GVariant* parameters) {
  g_autoptr(GVariant) path = g_variant_get_child_value(parameters, 0);
  if (g_variant_n_children(path) == 0) return std::nullopt;
  g_autoptr(GVariant) first = g_variant_get_child_value(path, 0);
  return g_variant_get_string(first, nullptr);
}

std::optional<std::string> signingRequestOf(GVariant* parameters) {
  g_autoptr(GVariant) request = g_variant_get_child_value(parameters, 1);
  const char* text = nullptr;
  if (!g_variant_lookup(request, "csr", "&s", &text)) return std::nullopt;
  return text;
}

void addText(GVariantBuilder& entries, const char* key, const std::string& text) {
  g_variant_builder_add(&entries, "{sv}", key, g_variant_new_string(text.c_str()));
}

void addTexts(GVariantBuilder& entries, const char* key, const std::vector<std::string>& texts) {
  GVariantBuilder list;
  g_variant_builder_init(&list, G_VARIANT_TYPE_STRING_ARRAY);
  for (const std::string& text : texts) g_variant_builder_add(&list, "s", text.c_str());
  g_variant_builder_add(&entries, "{sv}", key, g_variant_builder_end(&list));
}

void addReply(GVariantBuilder& replies, const Grant& grant) {
  if (!grant.urls && !grant.anchor && !grant.certificate) return;
  GVariantBuilder entries;
  g_variant_builder_init(&entries, G_VARIANT_TYPE_VARDICT);
  if (grant.urls) addTexts(entries, "url", *grant.urls);
  if (grant.anchor) addText(entries, "anchor", *grant.anchor);
  if (grant.certificate) addText(entries, "certificate", *grant.certificate);
  g_variant_builder_add_value(&replies, g_variant_builder_end(&entries));
}

void addError(GVariantBuilder& errors, const NotaryError& error) {
  GVariantBuilder entries;
  g_variant_builder_init(&entries, G_VARIANT_TYPE_VARDICT);
  for (const auto& [key, text] : error.userInfo) addText(entries, key.c_str(), text);
  g_variant_builder_add(&errors, "(sx@a{sv})", kErrorDomain, gint64{error.code},
                        g_variant_builder_end(&entries));
}

GVariant* bodyOf(const NotaryAnswer& answer) {
  GVariantBuilder replies;
  GVariantBuilder errors;
  g_variant_builder_init(&replies, G_VARIANT_TYPE("aa{sv}"));
  g_variant_builder_init(&errors, G_VARIANT_TYPE("a(sxa{sv})"));
  if (const auto* grant = std::get_if<Grant>(&answer)) addReply(replies, *grant);
  if (const auto* error = std::get_if<NotaryError>(&answer)) addError(errors, *error);
  return g_variant_new("(aa{sv}a(sxa{sv}))", &replies, &errors);
}

// As a message of its own, since GDBus checks the signature of ordinary answers.
void answerRubbish(GDBusMethodInvocation* invocation) {
  g_autoptr(GDBusMessage) reply =
      g_dbus_message_new_method_reply(g_dbus_method_invocation_get_message(invocation));
  g_dbus_message_set_body(reply, g_variant_new("(s)", "rubbish"));
  g_dbus_connection_send_message(g_dbus_method_invocation_get_connection(invocation), reply,
                                 G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(invocation);
}

void answerCall(Context& context, GDBusMethodInvocation* invocation) {
  const Fault fault = context.notary.nextFault();
  if (fault == Fault::exit) _exit(kExitByFault);
  if (fault == Fault::hang) return log("request left without an answer");
  if (fault == Fault::rubbish) return answerRubbish(invocation);
  GVariant* const parameters = g_dbus_method_invocation_get_parameters(invocation);
  const NotaryAnswer answer =
      context.notary.answer(pathOf(parameters), signingRequestOf(parameters), fault);
  g_dbus_method_invocation_return_value(invocation, bodyOf(answer));
}

gboolean answerPending(gpointer data) noexcept {
  const std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
  try {
    answerCall(pending->context, pending->invocation);
  } catch (const std::exception& error) {
    log(error.what());
    g_dbus_method_invocation_return_dbus_error(pending->invocation,
                                               "org.freedesktop.DBus.Error.Failed", error.what());
  }
  return G_SOURCE_REMOVE;
}

void called(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
            GDBusMethodInvocation* invocation, gpointer data) {
  auto& context = *static_cast<Context*>(data);
  g_timeout_add(static_cast<guint>(context.delay.count()), answerPending,
                new Pending{context, invocation});
}

void end(Context& context, const char* why, int status) {
  log(why);
  context.status = status;
  g_main_loop_quit(context.loop);
}

void nameAcquired(GDBusConnection*, const char*, gpointer) {
  log(std::string("claimed ") + kName);
}

void nameLost(GDBusConnection* bus, const char*, gpointer data) {
  end(*static_cast<Context*>(data),
      bus == nullptr || g_dbus_connection_is_closed(bus) ? "the session bus went away"
                                                         : "somebody else owns the name",
      1);
}

gboolean signalled(gpointer data) {
  end(*static_cast<Context*>(data), "ended by a signal", 0);
  return G_SOURCE_CONTINUE;
}

GDBusConnection* connect() {
  g_autoptr(GError) error = nullptr;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (bus == nullptr) {
    log(error->message);
  } else {
    g_dbus_connection_set_exit_on_close(bus, FALSE);
  }
  return bus;
}

// Claims the name and answers until SIGTERM or SIGINT arrives; returns the program's exit status.
// It is not 0 when there is no bus, when somebody else owns the name, or when the bus goes away.
int runNotary(Notary& notary, std::chrono::milliseconds delay) {
  g_autoptr(GDBusConnection) bus = connect();
  if (bus == nullptr) return 1;
  g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
  Context context{notary, delay, loop};
  g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(kNotaryInterface, nullptr);
  GDBusInterfaceVTable functions{};
  functions.method_call = called;
  g_dbus_connection_register_object(bus, kObject, node->interfaces[0], &functions, &context,
                                    nullptr, nullptr);
  g_unix_signal_add(SIGTERM, signalled, &context);
  g_unix_signal_add(SIGINT, signalled, &context);
  const guint name = g_bus_own_name_on_connection(bus, kName, G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE,
                                                  nameAcquired, nameLost, &context, nullptr);
  g_main_loop_run(loop);
  g_bus_unown_name(name);
  return context.status;
}

}  // namespace

}  // namespace devservice

int main(int count, char** arguments) {
  devservice::setLogName("kvlocal-devnotary");
  try {
    const auto parsed = devservice::parseNotaryOptions(count, arguments);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    const auto& options = std::get<devservice::NotaryOptions>(parsed);
    devservice::Notary notary(options);
    return devservice::runNotary(notary, options.delay);
  } catch (const std::exception& error) {
    devservice::log(error.what());
    return 1;
  }
}
