// A service in the test's own process that a row can have misbehave in every byte.
#pragma once

#include "tests/support/TestTLSServer.h"

#include <local/platform/Mutex.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kvltest {

// Requires a client certificate of the notary's authority. A request is answered with its own
// target, number included, one for `/events` with a stream of one event.
class NumberedService {
 public:
  // What becomes of a connection once a request has arrived on it.
  using Fault = std::function<void(kvl::testing::TestPeer&)>;
  // An answer to a request with this target, and whether the connection goes on.
  using Answer = std::function<bool(kvl::testing::TestPeer&, const std::string& target)>;
  using Options = kvl::testing::TestServerOptions;

  // With the authority of this state directory.
  explicit NumberedService(const std::filesystem::path& stateDirectory);
  ~NumberedService();
  NumberedService(const NumberedService&) = delete;
  NumberedService& operator=(const NumberedService&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] std::string url() const;

  // From now on every request meets this; null: its answer.
  void serve(Fault fault);
  // From now on every request gets this.
  void serveEach(Answer answer);
  // Ends every connection and refuses new ones.
  void stop();
  // Listens again, on the same port.
  void start();
  void start(Options options);
  // As the service is when all is well.
  [[nodiscard]] Options options() const;

  // A server certificate of the authority.
  [[nodiscard]] kvl::testing::TestIdentity makeIdentity(
      const kvl::testing::CertificateOptions& options) const;

 private:
  void handle(kvl::testing::TestPeer& peer);
  // Whether the connection goes on.
  bool handle(kvl::testing::TestPeer& peer, const std::string& target);

  const kvl::testing::TestIdentity authority_;
  const kvl::testing::TestIdentity identity_;
  std::uint16_t port_ = 0;
  kvl::Mutex mutex_;
  Fault fault_ KVL_GUARDED_BY(mutex_);
  Answer answer_ KVL_GUARDED_BY(mutex_);
  std::unique_ptr<kvl::testing::TestTLSServer> server_;
};

}  // namespace kvltest
