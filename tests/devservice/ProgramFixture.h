// The development programs as real processes on a private bus.
#pragma once

#include "devservice/OpenSSLPointers.h"
#include "tests/ipc/CallRecorder.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvltest {

struct CommandResult {
  int status;
  std::string output;  // both streams
};

// Runs a shell command to its end.
[[nodiscard]] CommandResult runCommand(const std::string& command);
[[nodiscard]] std::string readFile(const std::filesystem::path& path);

class ProgramFixture : public testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();

  void startNotary(const std::vector<std::string>& arguments = {});
  // Returns when it listens. The notary comes first, since it makes the folder for the state.
  void startService(const std::vector<std::string>& arguments = {});
  [[nodiscard]] std::filesystem::path state() const { return bus_.directory() / "state"; }
  [[nodiscard]] std::string serviceURL() const;

  // A request with the suite's key, unless another text is given.
  [[nodiscard]] static std::shared_ptr<CallRecorder> notarise(
      const std::optional<std::string>& path = std::nullopt,
      const std::optional<std::string>& request = std::nullopt);
  [[nodiscard]] static std::shared_ptr<CallRecorder> call(const std::optional<std::string>& path,
                                                          const kvl::Dictionary& request);
  // The reply of a call that got one; a failed expectation and an empty one otherwise.
  [[nodiscard]] static kvl::Dictionary replyOf(const CallRecorder& recorder);
  // Has the notary issue a certificate and stores it with the key and the anchor in files.
  void obtainIdentity();
  // curl's outcome for a path of the service, with the client's identity or without.
  [[nodiscard]] CommandResult get(const std::string& path, const std::string& options = "") const;
  [[nodiscard]] CommandResult getAsStranger(const std::string& path) const;

  static inline devservice::KeyPtr key_;
  PrivateBus bus_;
  SessionBusVariable variable_{bus_.address()};
  ChildProcess notary_;
  ChildProcess service_;
};

}  // namespace kvltest
