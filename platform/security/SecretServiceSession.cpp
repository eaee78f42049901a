#include "platform/security/SecretServiceSession.h"

#include "platform/security/PrivateSecretService.h"
#include "platform/security/SecretServiceItem.h"

namespace kvl::security {
namespace {

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

}  // namespace

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

}  // namespace kvl::security
