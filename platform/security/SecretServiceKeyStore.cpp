#include "platform/security/DeadlineWorker.h"
#include "platform/security/KeyStore.h"
#include "platform/security/SecretServiceSession.h"
#include "platform/security/StoredKeyRules.h"

namespace kvl::security {
namespace {

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
