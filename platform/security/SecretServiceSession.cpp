#include "platform/security/SecretServiceSession.h"

#include "platform/security/ProcessMarks.h"
#include "platform/security/SecretServiceItem.h"

#include <algorithm>
#include <utility>

// By itself libsecret uses the process's shared connection to the session bus, which has
// exit-on-close set: when the bus dies, the host would be killed with it.
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

constexpr auto kBusName = "org.freedesktop.secrets";
constexpr auto kServicePath = "/org/freedesktop/secrets";
constexpr auto kServiceInterface = "org.freedesktop.Secret.Service";
constexpr auto kCollectionInterface = "org.freedesktop.Secret.Collection";
constexpr auto kItemInterface = "org.freedesktop.Secret.Item";
constexpr auto kPromptInterface = "org.freedesktop.Secret.Prompt";
constexpr auto kPropertiesInterface = "org.freedesktop.DBus.Properties";
// The path that stands for none.
constexpr std::string_view kNoPath = "/";
// How long tidying up waits for an answer, in ms: the next caller waits with it.
constexpr int kTidyingAnswerLimit = 200;
// And how long all of it takes: what is left then goes another time.
constexpr std::chrono::seconds kTidyingTime{1};

// Errors that say, before the service has answered anything, that there is none for this process.
constexpr std::string_view kAbsenceErrors[] = {
    "org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner",
    "org.freedesktop.DBus.Error.NoServer", "org.freedesktop.DBus.Error.Disconnected",
    "org.freedesktop.DBus.Error.AccessDenied"};
// The same, from somebody who is there.
constexpr std::string_view kUnknownErrors[] = {"org.freedesktop.DBus.Error.UnknownObject",
                                               "org.freedesktop.DBus.Error.UnknownInterface",
                                               "org.freedesktop.DBus.Error.UnknownMethod"};
constexpr std::string_view kActivationErrors = "org.freedesktop.DBus.Error.Spawn.";
// Errors that say that another process removed the item.
constexpr std::string_view kVanishedErrors[] = {"org.freedesktop.Secret.Error.NoSuchObject",
                                                "org.freedesktop.DBus.Error.UnknownObject",
                                                "org.freedesktop.DBus.Error.UnknownMethod"};
constexpr std::string_view kLockedError = "org.freedesktop.Secret.Error.IsLocked";

}  // namespace

SecretServiceSession::~SecretServiceSession() {
  service_.reset();
  // Not waited for: a bus that hangs must not hang the caller.
  if (connection_) g_dbus_connection_close(connection_.get(), nullptr, nullptr, nullptr);
}

Status SecretServiceSession::open() {
  connection_ = connectPrivately(cancellable_, error_.out());
  return connection_ ? kSuccess : static_cast<Status>(errSecNotAvailable);
}

// Takes over floating arguments. Null after an error.
SecretServiceSession::Variant SecretServiceSession::call(const char* path, const char* interface,
                                                         const char* method, GVariant* arguments,
                                                         const char* replyType) {
  wantsToAsk_ = false;
  Variant reply(g_dbus_connection_call_sync(
      connection_.get(), kBusName, path, interface, method, arguments, G_VARIANT_TYPE(replyType),
      G_DBUS_CALL_FLAGS_NONE, answerLimit_, cancellable_, error_.out()));
  if (reply) hasAnswered_ = true;
  return reply;
}

// The session collection is kept in memory only and needs no prompt. It is never made where there
// is none: that brings up a dialog, which outlives the host.
Status SecretServiceSession::openCollection(std::string& path) {
  const Variant alias = call(kServicePath, kServiceInterface, "ReadAlias",
                             g_variant_new("(s)", SECRET_COLLECTION_SESSION), "(o)");
  if (!alias) return status();
  const char* collection = nullptr;
  g_variant_get(alias.get(), "(&o)", &collection);
  lacksCollection_ = collection == kNoPath;
  if (lacksCollection_) return errSecNotAvailable;
  path = collection;
  return unlock(collection);
}

Status SecretServiceSession::create(const std::string& collection, const StoredKey& key,
                                    std::vector<std::string>& made) {
  const Variant properties = itemProperties(key, ProcessMarks().own());
  const Variant secret(
      g_variant_take_ref(secret_service_encode_dbus_secret(service_.get(), itemValue(key).get())));
  const Variant reply =
      call(collection.c_str(), kCollectionInterface, "CreateItem",
           g_variant_new("(@a{sv}@(oayays)b)", properties.get(), secret.get(), FALSE), "(oo)");
  if (!reply) return status();
  const char* item = nullptr;
  g_variant_get_child(reply.get(), 0, "&o", &item);
  if (item != kNoPath) made.emplace_back(item);
  return decline(reply.get(), 1);
}

Status SecretServiceSession::add(std::span<const StoredKey> keys) {
  std::string collection;
  if (const Status opened = openCollection(collection); opened != kSuccess) return opened;
  if (const Status opened = openTransport(); opened != kSuccess) return opened;
  std::vector<std::string> made;
  for (const StoredKey& key : keys) {
    const Status status = create(collection, key, made);
    if (status == kSuccess) continue;
    for (const std::string& item : made) static_cast<void>(removeItem(item.c_str()));
    return status;
  }
  return kSuccess;
}

Status SecretServiceSession::find(std::optional<std::string_view> tag,
                                  std::vector<StoredKey>& keys) {
  const Variant paths = search(matchingAttributes(tag, std::nullopt).get());
  if (!paths) return status();
  GVariantIter iterator;
  g_variant_iter_init(&iterator, paths.get());
  const char* path = nullptr;
  while (g_variant_iter_next(&iterator, "&o", &path) != FALSE)
    if (const Status loaded = load(path, keys); loaded != kSuccess) return loaded;
  return kSuccess;
}

Status SecretServiceSession::remove(std::string_view tag, std::optional<Key::Class> keyClass) {
  const Variant paths = search(matchingAttributes(tag, keyClass).get());
  if (!paths) return status();
  Status result = errSecItemNotFound;
  Status failure = kSuccess;
  GVariantIter iterator;
  g_variant_iter_init(&iterator, paths.get());
  const char* path = nullptr;
  while (g_variant_iter_next(&iterator, "&o", &path) != FALSE) {
    const Status removed = removeItem(path);
    if (removed == kSuccess) {
      result = kSuccess;
    } else if (removed != errSecItemNotFound && failure == kSuccess) {
      failure = removed;
    }
  }
  return failure == kSuccess ? result : failure;
}

void SecretServiceSession::removeLeftOvers() {
  answerLimit_ = kTidyingAnswerLimit;
  const auto end = std::chrono::steady_clock::now() + kTidyingTime;
  const Variant paths = search(matchingAttributes(std::nullopt, std::nullopt).get());
  if (!paths) return;
  const ProcessMarks marks;
  GVariantIter iterator;
  g_variant_iter_init(&iterator, paths.get());
  const char* path = nullptr;
  while (std::chrono::steady_clock::now() < end &&
         g_variant_iter_next(&iterator, "&o", &path) != FALSE) {
    const auto maker = makerOf(path);
    if (!maker && g_error_matches(error_.get(), G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) return;
    if (maker && marks.isOfEndedProcess(*maker)) static_cast<void>(removeItem(path));
  }
}

// Absent after an error.
std::optional<std::string> SecretServiceSession::makerOf(const char* path) {
  const Variant reply = call(path, kPropertiesInterface, "Get",
                             g_variant_new("(ss)", kItemInterface, "Attributes"), "(v)");
  if (!reply) return std::nullopt;
  const Variant boxed(g_variant_get_child_value(reply.get(), 0));
  const Variant attributes(g_variant_get_variant(boxed.get()));
  if (g_variant_is_of_type(attributes.get(), G_VARIANT_TYPE("a{ss}")) == FALSE)
    return std::string();
  return makerOfItem(attributes.get());
}

// The paths (ao) of all items with these attributes, locked or not; null after an error.
SecretServiceSession::Variant SecretServiceSession::search(GVariant* attributes) {
  const Variant found = call(kServicePath, kServiceInterface, "SearchItems",
                             g_variant_new("(@a{ss})", attributes), "(aoao)");
  if (!found) return nullptr;
  GVariantBuilder all;
  g_variant_builder_init(&all, G_VARIANT_TYPE("ao"));
  for (const gsize list : {0U, 1U}) {
    const Variant paths(g_variant_get_child_value(found.get(), list));
    for (gsize i = 0; i < g_variant_n_children(paths.get()); ++i)
      g_variant_builder_add_value(&all, Variant(g_variant_get_child_value(paths.get(), i)).get());
  }
  return Variant(g_variant_ref_sink(g_variant_builder_end(&all)));
}

// Asked whatever the service says about the object: its word on that is not to be relied on.
Status SecretServiceSession::unlock(const char* path) {
  const char* paths[] = {path, nullptr};
  const Variant unlocked =
      call(kServicePath, kServiceInterface, "Unlock", g_variant_new("(^ao)", paths), "(aoo)");
  return unlocked ? decline(unlocked.get(), 1) : status();
}

// What `attempt` brings, or brings once the object is unlocked.
template <class Attempt>
SecretServiceSession::Variant SecretServiceSession::unlocking(const char* path, Attempt attempt) {
  Variant reply = attempt();
  if (!reply && isLocked() && unlock(path) == kSuccess) reply = attempt();
  return reply;
}

// Success when the reply holds no prompt there.
Status SecretServiceSession::decline(GVariant* reply, gsize promptIndex) {
  const char* prompt = nullptr;
  g_variant_get_child(reply, promptIndex, "&o", &prompt);
  if (prompt == kNoPath) return kSuccess;
  g_dbus_connection_call(connection_.get(), kBusName, prompt, kPromptInterface, "Dismiss", nullptr,
                         nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, nullptr);
  g_dbus_connection_flush_sync(connection_.get(), cancellable_, nullptr);
  wantsToAsk_ = true;
  return errSecInteractionNotAllowed;
}

// Once for a visit. In clear text, which libsecret would settle for, no key goes over the bus:
// whoever records its messages would have the key, and the next store needs no bus.
Status SecretServiceSession::openTransport() {
  if (!service_) service_ = openSecretService(connection_.get(), cancellable_, error_.out());
  if (!service_) return status();
  const char* algorithm = secret_service_get_session_algorithms(service_.get());
  if (algorithm == nullptr || std::string_view(algorithm) == "plain") return errSecNotAvailable;
  return kSuccess;
}

SecretServiceSession::Variant SecretServiceSession::secretOf(const char* path) {
  const char* session = secret_service_get_session_dbus_path(service_.get());
  return call(path, kItemInterface, "GetSecret", g_variant_new("(o)", session), "((oayays))");
}

// Success without a key for an item that is gone, stays locked or has another shape.
Status SecretServiceSession::load(const char* path, std::vector<StoredKey>& keys) {
  if (const Status opened = openTransport(); opened != kSuccess) return opened;
  const Variant secret = unlocking(path, [&] { return secretOf(path); });
  Variant properties;
  if (secret)
    properties =
        call(path, kPropertiesInterface, "GetAll", g_variant_new("(s)", kItemInterface), "(a{sv})");
  if (!properties) return isVanished() || isLocked() ? kSuccess : status();
  const Variant content(g_variant_get_child_value(secret.get(), 0));
  const ValuePtr value(secret_service_decode_dbus_secret(service_.get(), content.get()));
  if (!value) return kSuccess;
  std::optional<StoredKey> key =
      keyOfItem(Variant(g_variant_get_child_value(properties.get(), 0)).get(), value.get());
  if (key) keys.push_back(std::move(*key));
  return kSuccess;
}

// errSecItemNotFound: another process removed it.
Status SecretServiceSession::removeItem(const char* path) {
  const Variant removed =
      unlocking(path, [&] { return call(path, kItemInterface, "Delete", nullptr, "(o)"); });
  if (removed) return decline(removed.get(), 0);
  return isVanished() ? static_cast<Status>(errSecItemNotFound) : status();
}

bool SecretServiceSession::failedWith(std::span<const std::string_view> errors) const {
  if (error_.get() == nullptr) return false;
  const GLibPtr<char> name(g_dbus_error_get_remote_error(error_.get()));
  return name && std::ranges::find(errors, name.get()) != errors.end();
}

bool SecretServiceSession::isLocked() const {
  return wantsToAsk_ || failedWith({&kLockedError, 1});
}

bool SecretServiceSession::isVanished() const {
  return failedWith(kVanishedErrors);
}

bool SecretServiceSession::wasUnknown() const {
  return lacksCollection_ || (!hasAnswered_ && failedWith(kUnknownErrors));
}

// What the failure of the last call means.
Status SecretServiceSession::status() const {
  if (isLocked()) return errSecInteractionNotAllowed;
  if (hasAnswered_) return errSecInternalComponent;
  const GLibPtr<char> name(g_dbus_error_get_remote_error(error_.get()));
  const bool isAbsent = !name || failedWith(kAbsenceErrors) || failedWith(kUnknownErrors) ||
                        std::string_view(name.get()).starts_with(kActivationErrors);
  if (isAbsent) return errSecNotAvailable;
  return errSecInternalComponent;
}

}  // namespace kvl::security
