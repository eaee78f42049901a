// The key store in the Secret Service: libsecret's proxy on a private connection to the session
// bus, a session with it for each operation, and the store that gives each a deadline.
//
// By itself libsecret uses the process's shared connection to the session bus, which has
// exit-on-close set: when the bus dies, the host would be killed with it.
#include "platform/security/DeadlineWorker.h"
#include "platform/security/GLibPointers.h"
#include "platform/security/KeyStore.h"
#include "platform/security/SecretServiceItem.h"

#include <libsecret/secret.h>

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

// One visit: a connection that is used for one operation on the key store and closed with it. So a
// service or bus that went away in between does no harm, and no signals have to be taken in while
// nothing happens.
class SecretServiceSession {
 public:
  // `cancellable` is borrowed and ends every call that follows.
  explicit SecretServiceSession(GCancellable* cancellable) : cancellable_(cancellable) {}
  ~SecretServiceSession();
  SecretServiceSession(const SecretServiceSession&) = delete;
  SecretServiceSession& operator=(const SecretServiceSession&) = delete;

  // First of all. errSecNotAvailable: no bus, nobody who owns or can be activated for the name.
  [[nodiscard]] Status open();
  [[nodiscard]] Status add(const StoredKey& key);
  // Adds what it finds to `keys`.
  [[nodiscard]] Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys);
  [[nodiscard]] Status remove(std::string_view tag, std::optional<Key::Class> keyClass);

 private:
  struct StringsDeleter {
    void operator()(char** texts) const noexcept { g_strfreev(texts); }
  };
  using Paths = std::unique_ptr<char*, StringsDeleter>;

  [[nodiscard]] GLibPtr<char> collectionPath();
  [[nodiscard]] bool search(GHashTable* attributes, std::vector<std::string>& paths);
  [[nodiscard]] bool unlock(const char* path);
  [[nodiscard]] ObjectPtr<SecretItem> loadItem(const char* path);
  [[nodiscard]] bool removeItem(const char* path);
  [[nodiscard]] bool isVanished() const;
  [[nodiscard]] bool isLocked() const;
  [[nodiscard]] Status status() const;

  GCancellable* const cancellable_;
  ErrorSlot error_;
  ObjectPtr<GDBusConnection> connection_;
  ObjectPtr<SecretService> service_;
};

constexpr auto kCollectionLabelProperty = "org.freedesktop.Secret.Collection.Label";
constexpr auto kCollectionLabel = "Session";

void append(char** paths, std::vector<std::string>& list) {
  for (char** path = paths; path != nullptr && *path != nullptr; ++path) list.emplace_back(*path);
}

GLibPtr<GHashTable> collectionProperties() {
  const auto release = [](gpointer variant) { g_variant_unref(static_cast<GVariant*>(variant)); };
  GLibPtr<GHashTable> properties(g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, release));
  g_hash_table_replace(properties.get(), const_cast<char*>(kCollectionLabelProperty),
                       g_variant_ref_sink(g_variant_new_string(kCollectionLabel)));
  return properties;
}

SecretServiceSession::~SecretServiceSession() {
  service_.reset();
  // Not waited for: a bus that hangs must not hang the caller.
  if (connection_) g_dbus_connection_close(connection_.get(), nullptr, nullptr, nullptr);
}

Status SecretServiceSession::open() {
  connection_ = connectPrivately(cancellable_, error_.out());
  if (!connection_) return errSecNotAvailable;
  service_ = openSecretService(connection_.get(), cancellable_, error_.out());
  return service_ ? kSuccess : status();
}

Status SecretServiceSession::add(const StoredKey& key) {
  const GLibPtr<char> collection = collectionPath();
  if (!collection || !unlock(collection.get())) return status();
  const GLibPtr<GHashTable> properties = itemProperties(key);
  const ValuePtr value = itemValue(key);
  const GLibPtr<char> path(secret_service_create_item_dbus_path_sync(
      service_.get(), collection.get(), properties.get(), value.get(), SECRET_ITEM_CREATE_NONE,
      cancellable_, error_.out()));
  return path ? kSuccess : status();
}

// The collection that the service keeps in memory only and that needs no prompt. Some providers
// have none until somebody makes it.
GLibPtr<char> SecretServiceSession::collectionPath() {
  GLibPtr<char> path(secret_service_read_alias_dbus_path_sync(
      service_.get(), SECRET_COLLECTION_SESSION, cancellable_, error_.out()));
  if (path || error_.get() != nullptr) return path;
  const GLibPtr<GHashTable> properties = collectionProperties();
  return GLibPtr<char>(secret_service_create_collection_dbus_path_sync(
      service_.get(), properties.get(), SECRET_COLLECTION_SESSION, SECRET_COLLECTION_CREATE_NONE,
      cancellable_, error_.out()));
}

Status SecretServiceSession::find(std::optional<std::string_view> tag,
                                  std::vector<StoredKey>& keys) {
  std::vector<std::string> paths;
  if (!search(matchingAttributes(tag, std::nullopt).get(), paths)) return status();
  for (const std::string& path : paths) {
    const ObjectPtr<SecretItem> item = loadItem(path.c_str());
    if (!item && !isVanished()) return status();
    std::optional<StoredKey> key = item ? keyOfItem(item.get()) : std::nullopt;
    if (key) keys.push_back(std::move(*key));
  }
  return kSuccess;
}

Status SecretServiceSession::remove(std::string_view tag, std::optional<Key::Class> keyClass) {
  std::vector<std::string> paths;
  if (!search(matchingAttributes(tag, keyClass).get(), paths)) return status();
  Status result = errSecItemNotFound;
  for (const std::string& path : paths) {
    if (removeItem(path.c_str())) {
      result = kSuccess;
    } else if (!isVanished()) {
      return status();
    }
  }
  return result;
}

bool SecretServiceSession::search(GHashTable* attributes, std::vector<std::string>& paths) {
  char** unlocked = nullptr;
  char** locked = nullptr;
  const bool answered = secret_service_search_for_dbus_paths_sync(
      service_.get(), &itemSchema(), attributes, cancellable_, &unlocked, &locked, error_.out());
  const Paths unlockedOwner(unlocked);
  const Paths lockedOwner(locked);
  append(unlocked, paths);
  append(locked, paths);
  return answered;
}

// Asked whatever the service says about the object: its word on that is not to be relied on.
bool SecretServiceSession::unlock(const char* path) {
  const char* paths[] = {path, nullptr};
  return secret_service_unlock_dbus_paths_sync(service_.get(), paths, cancellable_, nullptr,
                                               error_.out()) >= 0;
}

// With its secret, unless it stays locked.
ObjectPtr<SecretItem> SecretServiceSession::loadItem(const char* path) {
  ObjectPtr<SecretItem> item(secret_item_new_for_dbus_path_sync(
      service_.get(), path, SECRET_ITEM_LOAD_SECRET, cancellable_, error_.out()));
  if (!item || ValuePtr(secret_item_get_secret(item.get()))) return item;
  const bool loaded =
      unlock(path) && secret_item_load_secret_sync(item.get(), cancellable_, error_.out());
  return loaded || isLocked() ? std::move(item) : nullptr;
}

bool SecretServiceSession::removeItem(const char* path) {
  const auto attempt = [&] {
    return secret_service_delete_item_dbus_path_sync(service_.get(), path, cancellable_,
                                                     error_.out()) != FALSE;
  };
  return attempt() || (isLocked() && unlock(path) && attempt());
}

// Another process removed the item.
bool SecretServiceSession::isVanished() const {
  const GError* error = error_.get();
  return g_error_matches(error, SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_OBJECT) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD);
}

bool SecretServiceSession::isLocked() const {
  return g_error_matches(error_.get(), SECRET_ERROR, SECRET_ERROR_IS_LOCKED);
}

Status SecretServiceSession::status() const {
  if (isLocked()) return errSecInteractionNotAllowed;
  return errSecNotAvailable;
}

class SecretServiceKeyStore final : public KeyStore {
 public:
  std::string_view name() const noexcept override { return "Secret Service"; }

  Status add(const StoredKey& key, Deadline deadline) override {
    if (const Status status = checkStorable(key); status != kSuccess) return status;
    return visit([key](SecretServiceSession& session) { return session.add(key); }, deadline);
  }

  Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys,
              Deadline deadline) override {
    if (tag && !isUsableTag(*tag)) {
      keys.clear();
      return kSuccess;
    }
    const auto found = std::make_shared<std::vector<StoredKey>>();
    const std::optional<std::string> ownTag(tag);
    const Status status = visit(
        [ownTag, found](SecretServiceSession& session) { return session.find(ownTag, *found); },
        deadline);
    // After a failure the job may still be filling the list.
    if (status == kSuccess) keys = std::move(*found);
    return status;
  }

  Status remove(std::string_view tag, std::optional<Key::Class> keyClass,
                Deadline deadline) override {
    if (!isUsableTag(tag)) return errSecItemNotFound;
    return visit([ownTag = std::string(tag), keyClass](
                     SecretServiceSession& session) { return session.remove(ownTag, keyClass); },
                 deadline);
  }

 private:
  template <class Operation>
  Status visit(Operation operation, Deadline deadline) {
    return worker_.run(
        [operation = std::move(operation)](GCancellable* cancellable) {
          SecretServiceSession session(cancellable);
          const Status status = session.open();
          return status == kSuccess ? operation(session) : status;
        },
        deadline);
  }

  DeadlineWorker worker_;
};

}  // namespace

std::shared_ptr<KeyStore> makeSecretServiceKeyStore() {
  return std::make_shared<SecretServiceKeyStore>();
}

}  // namespace kvl::security
