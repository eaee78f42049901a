// One visit to the Secret Service: a private connection to the session bus, used for one operation
// on the key store and closed with it. So a service or bus that went away in between does no harm,
// and no signals have to be taken in while nothing happens.
#pragma once

#include "platform/security/GLibPointers.h"
#include "platform/security/KeyStore.h"

#include <libsecret/secret.h>

namespace kvl::security {

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

}  // namespace kvl::security
