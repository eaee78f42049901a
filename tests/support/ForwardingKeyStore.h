// A key store that passes everything on.
#pragma once

#include "platform/security/KeyStore.h"

#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace kvltest {

// For stores that note, delay or refuse some of it.
class ForwardingKeyStore : public kvl::security::KeyStore {
 public:
  using Deadline = kvl::security::Deadline;
  using StoredKey = kvl::security::StoredKey;
  using Tag = std::optional<std::string_view>;
  using KeyClass = std::optional<kvl::Key::Class>;

  explicit ForwardingKeyStore(std::shared_ptr<KeyStore> inner = kvl::security::makeMemoryKeyStore())
      : inner_(std::move(inner)) {}

  [[nodiscard]] std::string_view name() const noexcept override { return inner_->name(); }
  void expectKey() override { inner_->expectKey(); }
  [[nodiscard]] kvl::Status add(const StoredKey& key, Deadline deadline) override {
    return inner_->add(key, deadline);
  }
  [[nodiscard]] kvl::Status find(Tag tag, std::vector<StoredKey>& keys,
                                 Deadline deadline) override {
    return inner_->find(tag, keys, deadline);
  }
  [[nodiscard]] kvl::Status remove(std::string_view tag, KeyClass keyClass,
                                   Deadline deadline) override {
    return inner_->remove(tag, keyClass, deadline);
  }

 private:
  const std::shared_ptr<KeyStore> inner_;
};

}  // namespace kvltest
