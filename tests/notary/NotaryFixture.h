// Notaries whose connections follow a script, and whose lookups run when the test says so.
#pragma once

#include "platform/core/NoDestructor.h"
#include "platform/environment/Environment.h"
#include "platform/ipc/ServiceConnection.h"
#include "platform/security/KeyStore.h"
#include "platform/security/OpenSSLAccess.h"
#include "tests/support/LogCapture.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>
#include <local/platform/SystemVersion.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvltest {

// What the notary did with its connection, and what the test answers.
struct Script {
  std::vector<std::string> steps;
  std::optional<std::string> path;
  kvl::Dictionary request;
  std::optional<kvl::Error> channelError;
  std::optional<kvl::Dictionary> reply;
  std::optional<kvl::Error> serviceError;
  int connections = 0;
  bool holdsPosts = false;
  std::vector<kvl::ipc::ServiceConnection::Handler> held;

  // The part of the reply thread: runs what was posted, and lets go of it.
  void runHeld() {
    for (auto& block : std::exchange(held, {})) std::exchange(block, nullptr)();
  }
};

class ScriptedConnection final : public kvl::ipc::ServiceConnection {
 public:
  explicit ScriptedConnection(Script& script) : script_(script) { ++script_.connections; }
  void setInterruptionHandler(Handler handler) override { interrupted_ = std::move(handler); }
  void setInvalidationHandler(Handler handler) override { invalidated_ = std::move(handler); }
  void activate() override { script_.steps.emplace_back("activate"); }
  void resume() override { script_.steps.emplace_back("resume"); }
  void sendNotary(const std::optional<std::string>& path, const kvl::Dictionary& request,
                  ErrorHandler errorHandler, ReplyHandler replyHandler) override {
    script_.path = path;
    script_.request = request;
    if (script_.channelError) {
      interrupted_();
      return errorHandler(*script_.channelError);
    }
    replyHandler(script_.reply, script_.serviceError);
  }
  void suspend() override { script_.steps.emplace_back("suspend"); }
  void invalidate() override {
    script_.steps.emplace_back("invalidate");
    invalidated_();
  }
  void post(Handler block) override {
    if (script_.holdsPosts) return script_.held.push_back(std::move(block));
    block();
  }

 private:
  Script& script_;
  Handler interrupted_;
  Handler invalidated_;
};

// Runs its blocks when it is told to.
class HeldQueue final : public kvl::DispatchQueue {
 public:
  void async(Block block) override { blocks_.push_back(std::move(block)); }
  void asyncAfter(std::chrono::nanoseconds, Block block) override { async(std::move(block)); }
  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

  [[nodiscard]] std::size_t waiting() const { return blocks_.size(); }
  // Returns the blocks, as a thread would have them that is slow to let go of what it ran.
  std::vector<Block> run() {
    auto blocks = std::exchange(blocks_, {});
    for (const Block& block : blocks) block();
    return blocks;
  }

 private:
  std::vector<Block> blocks_;
  const std::string label_ = "held";
};

// Runs its blocks at once, so that a notarisation ends before it returns.
class ImmediateQueue final : public kvl::DispatchQueue {
 public:
  void async(Block block) override { block(); }
  void asyncAfter(std::chrono::nanoseconds, Block block) override { block(); }
  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_ = "immediate";
};

struct Outcome {
  int calls = 0;
  std::shared_ptr<KVLNotarySignature> signature;
  std::optional<kvl::Error> error;
};

class NotaryFixture : public testing::Test {
 protected:
  NotaryFixture() {
    kvl::setHostIdentifier("org.example.NotaryTest");
    current = this;
    unsetenv("korvale_vandrel_notary_minimum");
  }
  ~NotaryFixture() override {
    unsetenv("korvale_vandrel_notary_minimum");
    current = nullptr;
    kvl::setHostIdentifier("");
    kvl::setSystemVersion(kvl::kDefaultSystemVersion);
  }

  Outcome notarise(KVLNotary& notary) {
    Outcome outcome;
    notary.notariseWithCompletionHandler(
        [&](std::shared_ptr<KVLNotarySignature> signature, std::optional<kvl::Error> error) {
          ++outcome.calls;
          outcome.signature = std::move(signature);
          outcome.error = std::move(error);
        });
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_NE(outcome.signature != nullptr, outcome.error.has_value());
    return outcome;
  }
  Outcome notarise() { return notarise(*shared()); }

  // One notary for all tests that need no fresh one: making keys takes time.
  static std::shared_ptr<KVLNotary> shared() {
    static const kvl::NoDestructor<std::shared_ptr<KVLNotary>> notary(
        std::make_shared<KVLNotary>(std::nullopt, surroundings()));
    return *notary;
  }

  // Keys in memory, and connections that follow the script of the running test.
  static std::shared_ptr<const kvl::Environment> surroundings(
      std::shared_ptr<kvl::security::KeyStore> store = kvl::security::makeMemoryKeyStore(),
      std::shared_ptr<kvl::DispatchQueue> lookups = std::make_shared<ImmediateQueue>()) {
    auto environment = std::make_shared<kvl::Environment>();
    environment->lookupQueue = [lookups = std::move(lookups)] {
      ++current->lookupQueueRequests;
      return lookups;
    };
    environment->keyStore = [store = std::move(store)] { return store; };
    environment->serviceConnection = [](const std::string& name) {
      current->serviceName = name;
      auto connection = std::make_shared<ScriptedConnection>(current->script);
      current->lastConnection = connection;
      return connection;
    };
    return environment;
  }

  // A certificate for the notary's own key, so that an identity can be made.
  static std::string certificateFor(const KVLNotary& notary, long serialNumber = 0) {
    X509* certificate = X509_new();
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), serialNumber);
    ASN1_TIME_set(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 1000);
    X509_set_pubkey(certificate, kvl::security::nativeKey(*notary.publicKey()));
    X509_sign(certificate, kvl::security::nativeKey(*notary.privateKey()), EVP_sha256());
    return kvl::security::makeCertificate(certificate)->pem();
  }

  static inline NotaryFixture* current = nullptr;
  Script script;
  std::string serviceName;
  std::weak_ptr<kvl::ipc::ServiceConnection> lastConnection;
  int lookupQueueRequests = 0;
  const std::shared_ptr<const kvl::Environment> environment = surroundings();
  const LogCapture log;
};

inline const kvl::Array kURLs{"https://127.0.0.1:4321/"};

}  // namespace kvltest
