#include "tests/support/SecretProvider.h"

#include <algorithm>
#include <stdexcept>

namespace kvltest {
namespace {

constexpr auto kCollection = "/org/freedesktop/secrets/collection/session";
constexpr auto kPrompt = "/org/freedesktop/secrets/prompt/1";
constexpr auto kSession = "/org/freedesktop/secrets/session/1";
constexpr auto kNothing = "/";

SecretProvider::Attributes attributesIn(GVariant* variant) {
  SecretProvider::Attributes attributes;
  GVariantIter iterator;
  const char* name = nullptr;
  const char* value = nullptr;
  g_variant_iter_init(&iterator, variant);
  while (g_variant_iter_next(&iterator, "{&s&s}", &name, &value)) attributes[name] = value;
  return attributes;
}

GVariant* variantOf(const SecretProvider::Attributes& attributes) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  for (const auto& [name, value] : attributes)
    g_variant_builder_add(&builder, "{ss}", name.c_str(), value.c_str());
  return g_variant_builder_end(&builder);
}

// A public number of one makes the secret that both sides agree on one, too, so what one visitor
// encrypted can be handed to the next as it is.
GVariant* openedSession(bool encrypted) {
  const guint8 one = 1;
  GVariant* number = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, &one, 1, 1);
  return g_variant_new("(vo)", encrypted ? number : g_variant_new_string(""), kSession);
}

}  // namespace

SecretProvider::SecretProvider(const std::string& address, Manners manners)
    : manners_(std::move(manners)) {
  connection_ = g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
  if (connection_ == nullptr) throw std::runtime_error("no bus for the provider");
  g_dbus_connection_add_filter(connection_, &SecretProvider::filter, this, nullptr);
  GVariant* owned = g_dbus_connection_call_sync(
      connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", "org.freedesktop.secrets", 0), nullptr,
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (owned == nullptr) throw std::runtime_error("the provider has no name");
  g_variant_unref(owned);
}

SecretProvider::~SecretProvider() {
  // Returns when the connection's thread has done with this object.
  g_dbus_connection_close_sync(connection_, nullptr, nullptr);
  g_object_unref(connection_);
}

void SecretProvider::behave(Manners manners) {
  const std::lock_guard lock(mutex_);
  manners_ = std::move(manners);
}

std::string SecretProvider::addItem(Attributes attributes) {
  const std::lock_guard lock(mutex_);
  const std::string path = kCollection + ("/" + std::to_string(++made_));
  items_[path].attributes = std::move(attributes);
  return path;
}

std::vector<std::string> SecretProvider::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

int SecretProvider::count(const std::string& method) const {
  const auto all = calls();
  return static_cast<int>(std::ranges::count(all, method));
}

std::set<std::string> SecretProvider::readItems() const {
  const std::lock_guard lock(mutex_);
  return readItems_;
}

std::map<std::string, SecretProvider::Attributes> SecretProvider::items() const {
  const std::lock_guard lock(mutex_);
  std::map<std::string, Attributes> result;
  for (const auto& [path, item] : items_) result[path] = item.attributes;
  return result;
}

// On the connection's thread.
GDBusMessage* SecretProvider::filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                     gpointer self) {
  const bool isCall = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
  if (incoming == FALSE || !isCall) return message;
  static_cast<SecretProvider*>(self)->serve(message);
  g_object_unref(message);
  return nullptr;
}

void SecretProvider::serve(GDBusMessage* call) {
  const std::lock_guard lock(mutex_);
  const std::string method = g_dbus_message_get_member(call);
  calls_.push_back(method);
  if (manners_.hangs.contains(method)) return;
  if (manners_.dies.contains(method))
    return g_dbus_connection_close(connection_, nullptr, nullptr, nullptr);
  GDBusMessage* reply = answer(call, method);
  g_dbus_connection_send_message(connection_, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                 nullptr);
  g_object_unref(reply);
}

GDBusMessage* SecretProvider::answer(GDBusMessage* call, const std::string& method) {
  const auto at = manners_.failsAt.find(method);
  if (at != manners_.failsAt.end() && at->second == std::ranges::count(calls_, method))
    return g_dbus_message_new_method_error_literal(call, "org.freedesktop.Secret.Error.NoSession",
                                                   "as told");
  const auto forgotten = manners_.forgets.find(method);
  if (forgotten != manners_.forgets.end() &&
      std::ranges::count(calls_, method) <= forgotten->second)
    return g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.UnknownMethod",
                                                   "as told");
  const auto failure = manners_.fails.find(method);
  if (failure != manners_.fails.end())
    return g_dbus_message_new_method_error_literal(call, failure->second.c_str(), "as told");
  GVariant* body = perform(method, g_dbus_message_get_path(call), g_dbus_message_get_body(call));
  if (body == nullptr)
    return g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.NotSupported",
                                                   "not here");
  GDBusMessage* reply = g_dbus_message_new_method_reply(call);
  g_dbus_message_set_body(reply, body);
  return reply;
}

bool SecretProvider::hasCollection() const {
  return manners_.hasSessionCollection &&
         std::ranges::count(calls_, "ReadAlias") > manners_.lateCollection;
}

GVariant* SecretProvider::perform(const std::string& method, const std::string& path,
                                  GVariant* arguments) {
  const bool asks = manners_.prompts.contains(method);
  if (method == "ReadAlias") return g_variant_new("(o)", hasCollection() ? kCollection : kNothing);
  if (method == "OpenSession") {
    const char* algorithm = nullptr;
    g_variant_get_child(arguments, 0, "&s", &algorithm);
    const bool encrypted = std::string_view(algorithm) != "plain";
    return encrypted && !manners_.encrypts ? nullptr : openedSession(encrypted);
  }
  if (method == "Unlock") {
    GVariantBuilder unlocked;
    g_variant_builder_init(&unlocked, G_VARIANT_TYPE("ao"));
    return g_variant_new("(aoo)", &unlocked, asks ? kPrompt : kNothing);
  }
  if (method == "SearchItems") return search(arguments);
  if (method == "CreateCollection" || (method == "CreateItem" && asks))
    return g_variant_new("(oo)", kNothing, kPrompt);
  if (method == "CreateItem") return create(arguments);
  if (method == "Delete") {
    if (!asks) items_.erase(path);
    return g_variant_new("(o)", asks ? kPrompt : kNothing);
  }
  if (method == "GetSecret") return secret(path, arguments);
  if (method == "Get") return g_variant_new("(v)", variantOf(items_[path].attributes));
  if (method == "GetAll") {
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    if (items_.contains(path))
      g_variant_builder_add(&properties, "{sv}", "Attributes", variantOf(items_[path].attributes));
    return g_variant_new("(a{sv})", &properties);
  }
  return nullptr;
}

GVariant* SecretProvider::search(GVariant* arguments) const {
  GVariant* variant = g_variant_get_child_value(arguments, 0);
  const Attributes wanted = attributesIn(variant);
  g_variant_unref(variant);
  GVariantBuilder unlocked;
  GVariantBuilder locked;
  g_variant_builder_init(&unlocked, G_VARIANT_TYPE("ao"));
  g_variant_builder_init(&locked, G_VARIANT_TYPE("ao"));
  for (const auto& [path, item] : items_)
    if (std::ranges::includes(item.attributes, wanted))
      g_variant_builder_add(&unlocked, "o", path.c_str());
  return g_variant_new("(aoao)", &unlocked, &locked);
}

GVariant* SecretProvider::create(GVariant* arguments) {
  const std::string path = kCollection + ("/" + std::to_string(++made_));
  GVariant* properties = g_variant_get_child_value(arguments, 0);
  GVariant* attributes = g_variant_lookup_value(
      properties, "org.freedesktop.Secret.Item.Attributes", G_VARIANT_TYPE("a{ss}"));
  items_[path] = {attributesIn(attributes),
                  {g_variant_get_child_value(arguments, 1), &g_variant_unref}};
  g_variant_unref(attributes);
  g_variant_unref(properties);
  return g_variant_new("(oo)", path.c_str(), kNothing);
}

GVariant* SecretProvider::secret(const std::string& path, GVariant* arguments) {
  readItems_.insert(path);
  if (!items_.contains(path) || !items_[path].secret) return nullptr;
  GVariant* stored = items_[path].secret.get();
  GVariant* parts[] = {g_variant_get_child_value(arguments, 0),
                       g_variant_get_child_value(stored, 1), g_variant_get_child_value(stored, 2),
                       g_variant_get_child_value(stored, 3)};
  GVariant* secret = g_variant_new_tuple(parts, std::size(parts));
  for (GVariant* part : parts) g_variant_unref(part);
  return g_variant_new_tuple(&secret, 1);
}

}  // namespace kvltest
