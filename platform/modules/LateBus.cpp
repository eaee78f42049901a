// What the library does with the bus, by a module of its own.
#include "platform/core/PartsFolder.h"
#include "platform/core/ProcessExit.h"
#include "platform/core/Sentence.h"
#include "platform/core/Threads.h"
#include "platform/interface/desktop/OpenOnDesktop.h"
#include "platform/ipc/ChannelErrors.h"
#include "platform/modules/BusModule.h"
#include "platform/modules/LateModule.h"

#include <local/platform/Mutex.h>

#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl {
namespace {

constexpr std::string_view kMissing =
    translatable("A part of this program's framework is missing.");

const modules::BusParts* busParts() noexcept {
  constinit static modules::LateModule module(KVL_PARTS_FOLDER "/kvlocal-bus.so", "kvlocalBus");
  return static_cast<const modules::BusParts*>(module.get());
}

class MissingTransport final : public ipc::CallTransport {
 public:
  explicit MissingTransport(const std::string& serviceName) : errors_(serviceName) {}
  void send(const ipc::ServiceRequest&, Answer answer) override {
    answer({errors_.unreachable(kMissing), {}});
  }
  void cancel() override {}

 private:
  const ipc::ChannelErrors errors_;
};

// Carries what is sent by whatever there is by then.
class LateTransport final : public ipc::CallTransport {
 public:
  LateTransport(std::string serviceName, std::uint32_t trustedUser)
      : serviceName_(std::move(serviceName)), trustedUser_(trustedUser) {}

  void send(const ipc::ServiceRequest& request, Answer answer) override {
    const auto* const parts = busParts();
    transport_ = parts != nullptr ? parts->makeTransport(serviceName_, trustedUser_)
                                  : std::make_shared<MissingTransport>(serviceName_);
    transport_->send(request, std::move(answer));
  }
  void cancel() override {
    if (transport_) transport_->cancel();
  }

 private:
  const std::string serviceName_;
  const std::uint32_t trustedUser_;
  std::shared_ptr<ipc::CallTransport> transport_;  // from `send` on
};

// Without that part of the library there is no such store, and the next one is asked.
class LateKeyStore final : public security::KeyStore,
                           public std::enable_shared_from_this<LateKeyStore> {
 public:
  std::string_view name() const noexcept override { return "Secret Service"; }

  // The making of a key takes longer than the loading.
  void expectKey() override {
    if (const auto store = loaded()) return store->expectKey();
    static_cast<void>(core::startThread("kvl-load", [self = shared_from_this()] {
      const core::ThreadWork work;
      if (const auto store = self->real()) store->expectKey();
    }));
  }

  Status add(const security::StoredKey& key, security::Deadline deadline) override {
    const auto store = real();
    return store ? store->add(key, deadline) : static_cast<Status>(errSecNotAvailable);
  }
  Status addPair(const security::StoredKey& publicHalf, const security::StoredKey& privateHalf,
                 security::Deadline deadline) override {
    const auto store = real();
    return store ? store->addPair(publicHalf, privateHalf, deadline)
                 : static_cast<Status>(errSecNotAvailable);
  }
  Status find(std::optional<std::string_view> tag, std::vector<security::StoredKey>& keys,
              security::Deadline deadline) override {
    const auto store = real();
    return store ? store->find(tag, keys, deadline) : static_cast<Status>(errSecNotAvailable);
  }
  Status remove(std::string_view tag, std::optional<Key::Class> keyClass,
                security::Deadline deadline) override {
    const auto store = real();
    return store ? store->remove(tag, keyClass, deadline) : static_cast<Status>(errSecNotAvailable);
  }

 private:
  std::shared_ptr<security::KeyStore> loaded() {
    const MutexLock lock(mutex_);
    return store_;
  }

  std::shared_ptr<security::KeyStore> real() {
    const auto* const parts = busParts();
    const MutexLock lock(mutex_);
    if (!store_ && parts != nullptr) store_ = parts->makeSecretServiceKeyStore();
    return store_;
  }

  Mutex mutex_;
  std::shared_ptr<security::KeyStore> store_ KVL_GUARDED_BY(mutex_);
};

}  // namespace

std::shared_ptr<ipc::CallTransport> ipc::makeBusTransport(const std::string& serviceName,
                                                          std::uint32_t trustedUser) {
  return std::make_shared<LateTransport>(serviceName, trustedUser);
}

std::shared_ptr<security::KeyStore> security::makeSecretServiceKeyStore() {
  return std::make_shared<LateKeyStore>();
}

bool interface::openOnDesktop(const std::string& url) {
  const auto* const parts = busParts();
  return parts != nullptr && parts->openOnDesktop(url);
}

}  // namespace kvl
