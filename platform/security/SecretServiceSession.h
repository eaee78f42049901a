// A visit to the Secret Service: libsecret's proxy on a private connection to the session bus, and
// a session with it.
#pragma once

#include "platform/security/GLibPointers.h"
#include "platform/security/KeyStore.h"

#include <libsecret/secret.h>

#include <span>

namespace kvl::security {

// One visit: a connection that is used for one operation on the key store and closed with it. So a
// service or bus that went away in between does no harm, and no signals have to be taken in while
// nothing happens. A visit may be opened ahead, while a key is being made.
//
// Nothing is made that would ask the user, and nobody is ever asked: what the service wants to ask
// about counts as locked.
class SecretServiceSession {
 public:
  // `cancellable` is borrowed and ends every call that follows.
  explicit SecretServiceSession(GCancellable* cancellable) : cancellable_(cancellable) {}
  ~SecretServiceSession();
  SecretServiceSession(const SecretServiceSession&) = delete;
  SecretServiceSession& operator=(const SecretServiceSession&) = delete;

  // First of all. errSecNotAvailable: no bus. So answers every operation when nobody owns the name
  // or can be activated for it.
  [[nodiscard]] Status open();
  // What adding and finding need besides, and get for themselves when it is not there.
  // errSecNotAvailable also without encryption.
  [[nodiscard]] Status openTransport();
  // Whether the service has known nothing of what it was asked first, a method or the session
  // collection. One that has both says so now and then to a caller that it is only getting to know,
  // and not on the caller's next visit.
  [[nodiscard]] bool wasUnknown() const;
  // Another one from now on, for a visit that was opened ahead.
  void continueWith(GCancellable* cancellable) { cancellable_ = cancellable; }
  // All or none. errSecNotAvailable also without a session collection or without encryption.
  [[nodiscard]] Status add(std::span<const StoredKey> keys);
  // Adds what it finds to `keys`.
  [[nodiscard]] Status find(std::optional<std::string_view> tag, std::vector<StoredKey>& keys);
  // Goes on after a failure, which it then tells.
  [[nodiscard]] Status remove(std::string_view tag, std::optional<Key::Class> keyClass);
  // Deletes, whatever their tag, the keys of processes that ended without deleting them. Gives up
  // when the service takes more than a moment for an answer, or a second for all of them.
  void removeLeftOvers();

 private:
  using Variant = GLibPtr<GVariant>;

  [[nodiscard]] Variant call(const char* path, const char* interface, const char* method,
                             GVariant* arguments, const char* replyType);
  [[nodiscard]] Variant search(GVariant* attributes);
  [[nodiscard]] Status unlock(const char* path);
  template <class Attempt>
  [[nodiscard]] Variant unlocking(const char* path, Attempt attempt);
  [[nodiscard]] Status decline(GVariant* reply, gsize promptIndex);
  [[nodiscard]] Status openCollection(std::string& path);
  [[nodiscard]] Status create(const std::string& collection, const StoredKey& key,
                              std::vector<std::string>& made);
  [[nodiscard]] Variant secretOf(const char* path);
  [[nodiscard]] Status load(const char* path, std::vector<StoredKey>& keys);
  [[nodiscard]] Status removeItem(const char* path);
  [[nodiscard]] std::optional<std::string> makerOf(const char* path);
  [[nodiscard]] bool failedWith(std::span<const std::string_view> errors) const;
  [[nodiscard]] bool isLocked() const;
  [[nodiscard]] bool isVanished() const;
  [[nodiscard]] Status status() const;

  GCancellable* cancellable_;
  int answerLimit_ = G_MAXINT;  // ms
  ErrorSlot error_;
  bool hasAnswered_ = false;
  bool lacksCollection_ = false;
  bool wantsToAsk_ = false;  // the last reply
  ObjectPtr<GDBusConnection> connection_;
  ObjectPtr<SecretService> service_;  // for the transport of secrets
};

}  // namespace kvl::security
